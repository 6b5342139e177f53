// The process-wide settings object: every tunable value, declared once in a schema that drives defaults,
// loading and saving.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tvr {

enum class field_type : std::uint32_t { string = 0, path = 1, integer = 2, flag = 3, number = 4, real = 5 };

// A path as configured (raw, with %name% references) and as the code uses it.
struct path_setting {
    std::string expanded;
    std::string raw;
};

// One declared setting.
struct field_descriptor {
    void* member;     // std::string, std::uint8_t, std::uint32_t or double, by type
    std::string* raw; // of a path; otherwise null
    const char* key;  // static text
    field_type type;
    std::uint32_t group; // 0 basic (settings.cfg), 1 advanced (advanced.ini)
};

enum class schema_mode { basic_defaults = 0, advanced_defaults = 1, declare = 2 };

// Bits of `which` and of the result of load() and save().
constexpr std::uint32_t store_binary = 1;
constexpr std::uint32_t store_text = 2;

class base_settings {
public:
    virtual ~base_settings() = default;
    base_settings() = default;
    base_settings(const base_settings&) = delete;
    base_settings& operator=(const base_settings&) = delete;

    // Declares all fields, or assigns the defaults of one group and then expands all paths. The base knows
    // the working directory only. Declaring again adds every descriptor again; look-ups take the first.
    virtual void schema(schema_mode mode);
    void declare_base() { base_settings::schema(schema_mode::declare); }
    // Appends one descriptor. `member` and `raw` must live as long as the object, `key` for ever.
    void declare(std::uint32_t group, field_type type, void* member, const char* key,
                 std::string* raw = nullptr);
    // Makes the expanded form of every declared path from its raw form.
    void expand_all();

    // Loads and saves. `which` holds store_binary (group 0, settings.cfg) and store_text (group 1); the
    // result holds the bits that failed, as each does with a null name, and that of the text with an empty
    // one too. Values that a store doesn't hold stay as they are. The binary form fails without its section,
    // and as a whole, with nothing taken, if it or one of its values is damaged; the default log tells about
    // the file. Loading the text form first brings the defaults of group 1 back, even if reading then fails.
    std::uint32_t load(const std::string* binary_file, const std::string* text_file, std::uint32_t which);
    std::uint32_t save(const std::string* binary_file, const std::string* text_file, std::uint32_t which);
    // The text form, lines key="value". Reading takes the lines that name a field of `group`, in any case,
    // and passes over all others; false if the file can't be opened. Writing replaces the file.
    bool read_text(std::string_view file, std::uint32_t group = 0);
    bool write_text(std::string_view file, std::uint32_t group);
    // The flat form: one block that hands settings to another component. A 32-bit count, and for each field
    // its key and a zero byte, its 32-bit type, and its value in the binary form. `keys` are names, each with
    // a zero byte after it, up to an empty one or the end; without them it is all fields of both groups.
    // Names that are no key are passed over. No file is touched.
    // deliberate: the flat form has no caller here.
    [[nodiscard]] std::size_t flat_size(std::optional<std::string_view> keys = std::nullopt) const; // bytes
    [[nodiscard]] std::string flat_export(std::optional<std::string_view> keys = std::nullopt) const;
    // Takes each entry into the first field of its key; passes over unknown keys and over values of another
    // type than the field's, and ignores bytes after the last entry. False, with nothing taken, if the block
    // is cut short.
    bool flat_import(std::string_view block);

    // In the order of declaration; a field that was declared twice stands here twice.
    [[nodiscard]] std::span<const field_descriptor> fields() const noexcept { return m_fields; }
    // The value of a field in its text form, and its assignment from that. Text that is no number counts as
    // 0.
    [[nodiscard]] static std::string value_text(const field_descriptor& field);
    static void assign_text(const field_descriptor& field, std::string_view value);

    path_setting working_directory;

private:
    bool load_binary(const std::string& file);
    [[nodiscard]] bool save_binary(const std::string& file) const;
    // The fields that a list of keys names, in its order.
    [[nodiscard]] std::vector<const field_descriptor*> chosen(std::optional<std::string_view> keys) const;
    [[nodiscard]] const field_descriptor* find(std::string_view key) const; // the first one; null if none

    std::vector<field_descriptor> m_fields;
};

// All settings, in schema order.
class settings : public base_settings {
public:
    void schema(schema_mode mode) override;

    // group 0
    path_setting filter_log;
    path_setting list_of_ignoring_kludges;
    std::string spam_transliteration_table;
    std::string local_user_alphabet;
    std::uint8_t show_splash_screen = 0;
    std::uint8_t log_current_process = 0;
    std::uint8_t log_global_state = 0;
    std::uint8_t log_grades = 0;
    std::uint8_t filter_is_logged = 0;
    std::uint8_t use_white_list_of_kludges = 0;
    std::uint8_t use_partically_translitting = 0;
    std::uint8_t use_enhanced_grade = 0;
    std::uint32_t sighificant_tokens = 0;
    // group 1
    std::uint8_t export_selective_download = 0;
    std::uint32_t selective_download_spam_threshold = 0;
    std::uint32_t limit_size_to_hash = 0;
    std::uint32_t limit_size_to_hash_header = 0;
    std::uint8_t simple_digits_spam_marks = 0;
    std::uint8_t no_spaces_spam_marks = 0;
    std::uint32_t number_of_exclamations = 0;
    std::uint32_t training_delay = 0; // seconds
    std::uint8_t learn_from_zero = 0;
    std::uint8_t use_autotrain = 0;
    std::uint8_t use_average_instead_of_bayesian = 0;
    std::uint8_t use_degeneration = 0;
    std::uint8_t use_translit_tables_from_registry = 0;
    double recalculating_strategy = 0;
    double regarding_threshold = 0;
    std::uint32_t idle_time_to_shut_down_server = 0;
    std::uint32_t behaviour_when_no_train_info = 0;
    std::uint32_t optimal_base_size_per_half = 0;
    std::uint32_t optimal_one_dict_size = 0;
    std::uint32_t min_optimal_one_dict_size = 0;
    double max_single_path_level = 0;
};

// The one settings object. Filled during start-up, then read by all threads without a lock. Null before
// make_current_settings(). Code that needs settings takes them from here.
settings* current_settings() noexcept;
// Builds the object on the first call; returns it.
settings& make_current_settings();

} // namespace tvr
