// The schema: every setting with its key, type, group and default, in the order of the stores.

#include "settings/settings.h"

namespace tvr {

namespace {

constexpr std::uint32_t basic = 0;
constexpr std::uint32_t advanced = 1;

// Carries out one mode of the schema over the fields that are named to it.
class schema_pass {
public:
    schema_pass(settings& owner, schema_mode mode) : m_owner(owner), m_mode(mode) {}

    void path(std::uint32_t group, path_setting& member, const char* key, const char* value) {
        if (declares())
            m_owner.declare(group, field_type::path, &member.expanded, key, &member.raw);
        else if (assigns(group))
            member.expanded = value; // deliberate: lost at the next expansion, which goes by the raw form
    }
    void text(std::uint32_t group, std::string& member, const char* key) {
        field(group, field_type::string, member, key, std::string());
    }
    void flag(std::uint32_t group, std::uint8_t& member, const char* key, bool value) {
        field(group, field_type::flag, member, key, static_cast<std::uint8_t>(value ? 1 : 0));
    }
    void number(std::uint32_t group, std::uint32_t& member, const char* key, std::uint32_t value) {
        field(group, field_type::number, member, key, value);
    }
    void real(std::uint32_t group, double& member, const char* key, double value) {
        field(group, field_type::real, member, key, value);
    }

private:
    [[nodiscard]] bool declares() const { return m_mode == schema_mode::declare; }
    [[nodiscard]] bool assigns(std::uint32_t group) const {
        return static_cast<std::uint32_t>(m_mode) == group;
    }

    template <class T>
    void field(std::uint32_t group, field_type type, T& member, const char* key, T value) {
        if (declares())
            m_owner.declare(group, type, &member, key);
        else if (assigns(group))
            member = std::move(value);
    }

    settings& m_owner;
    schema_mode m_mode;
};

} // namespace

void settings::schema(schema_mode mode) {
    base_settings::schema(mode);
    schema_pass pass(*this, mode);
    pass.path(basic, filter_log, "filter log", "c:\\tvram.log");
    pass.path(basic, list_of_ignoring_kludges, "list of ignoring kludges", "c:\\kludges.txt");
    pass.text(basic, spam_transliteration_table, "spam transliteration table");
    pass.text(basic, local_user_alphabet, "local user alphabet");
    pass.flag(basic, show_splash_screen, "show splash screen", true);
    pass.flag(basic, log_current_process, "log current process", true);
    pass.flag(basic, log_global_state, "log global state", true);
    pass.flag(basic, log_grades, "log grades", true);
    pass.flag(basic, filter_is_logged, "filter is logged", true);
    pass.flag(basic, use_white_list_of_kludges, "use white list of kludges", false);
    pass.flag(basic, use_partically_translitting, "use partically translitting", false);
    pass.flag(basic, use_enhanced_grade, "use enhanced grade", true);
    pass.number(basic, sighificant_tokens, "sighificant tokens", 15);
    pass.flag(advanced, export_selective_download, "export selective download", true);
    pass.number(advanced, selective_download_spam_threshold, "selective download spam threshold", 10);
    pass.number(advanced, limit_size_to_hash, "limit size to hash", 19);
    pass.number(advanced, limit_size_to_hash_header, "limit size to hash header", 96);
    pass.flag(advanced, simple_digits_spam_marks, "simple digits spam marks", true);
    pass.flag(advanced, no_spaces_spam_marks, "no spaces spam marks", true);
    pass.number(advanced, number_of_exclamations, "number of exclamations", 5);
    pass.number(advanced, training_delay, "training delay", 30000);
    pass.flag(advanced, learn_from_zero, "learn from zero", true);
    pass.flag(advanced, use_autotrain, "use autotrain", true);
    pass.flag(advanced, use_average_instead_of_bayesian, "use average instead of bayesian", false);
    pass.flag(advanced, use_degeneration, "use degeneration", true);
    pass.flag(advanced, use_translit_tables_from_registry, "use translit tables from registry", true);
    pass.real(advanced, recalculating_strategy, "recalculating strategy", 3.0);
    pass.real(advanced, regarding_threshold, "regarding threshold", 1.8);
    pass.number(advanced, idle_time_to_shut_down_server, "idle time to shut down server", 20);
    pass.number(advanced, behaviour_when_no_train_info, "behaviour when no train info", 2);
    pass.number(advanced, optimal_base_size_per_half, "optimal base size per half", 2000);
    pass.number(advanced, optimal_one_dict_size, "optimal one dict size", 200);
    pass.number(advanced, min_optimal_one_dict_size, "min optimal one dict size", 20);
    pass.real(advanced, max_single_path_level, "MaxSinglePathLevel", 0.5);
    if (mode != schema_mode::declare)
        expand_all();
}

} // namespace tvr
