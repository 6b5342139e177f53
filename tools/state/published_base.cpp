#include "tools/state/published_base.h"

#include "client/base_check.h"
#include "client/user_folder.h"
#include "client/verdict/user_limits.h"
#include "platform/file.h"
#include "settings/common_settings.h"
#include "tools/state/engine_view.h"

namespace tvr {

bool published_base::is_there() {
    const std::string working = find_user_folder().path;
    return !working.empty() && platform::get_attributes(engine_view(working).base_path()).has_value();
}

std::string published_base::load() {
    const auto read = [this](const std::string& path) {
        if (std::string fault = base_defect(path); !fault.empty())
            return fault;
        if (!m_base.emplace().load(path))
            return std::string("can't be read");
        m_spam_messages = m_base->header().spam_messages;
        m_ham_messages = m_base->header().nonspam_messages;
        return std::string();
    };
    return load(read, {.messages = false});
}

std::string published_base::load_for(const token_table& tokens) {
    std::vector<token_key> keys;
    tokens.for_each([&](std::string_view token, std::uint32_t) { keys.push_back(key_of(token)); });
    const auto read = [&](const std::string& path) {
        base_header head;
        m_few.emplace(tokens);
        std::string fault = read_base(path, head, [this](base_entries entries) { m_few->take(entries); });
        m_spam_messages = head.spam_messages;
        m_ham_messages = head.nonspam_messages;
        return fault;
    };
    return load(read, {.messages = false, .only = keys});
}

std::string published_base::load(const std::function<std::string(const std::string& path)>& read,
                                 const verdict_use& use) {
    const auto [working, error] = find_user_folder();
    if (working.empty())
        return error;
    const engine_view view(working);
    const std::string shown = platform::display_path(view.base_path());
    if (!platform::get_attributes(view.base_path()))
        return shown +
               (view.stage()
                    ? ": none is published now; \"tvrctl start\" starts the engine, which makes it again"
                    : ": no base is published yet; train some spam and some ham first");
    if (const std::string fault = read(view.base_path()); !fault.empty())
        return shown + ": " + fault +
               "; \"tvrctl verify\" tells more, \"tvrctl stop; tvrctl repair; tvrctl start\" makes it again";
    m_working = working;
    load_learned(verdict_path(working), use);
    return {};
}

void published_base::load_learned(const std::string& path, const verdict_use& use) {
    auto state = std::make_shared<verdict_state>();
    const verdict_file_result found = load_verdict(path, *state, use);
    if (found == verdict_file_result::damaged || found == verdict_file_result::failed)
        m_remark =
            platform::display_path(path) +
            (found == verdict_file_result::damaged ? ": damaged, or of another version" : ": can't be read") +
            "; the verdict rests on the built-in weights";
    m_learned = std::move(state);
}

double published_base::grade(std::string_view token) const {
    if (m_few)
        return m_few->grade(token);
    const platform::locker locker(m_base->lock);
    return m_base->grade(token);
}

mail_scorer published_base::scorer(score_rule rule, std::optional<double> spam_threshold) const {
    score_settings settings;
    settings.rule = rule;
    // One that is asked for stands alone.
    settings.limits = spam_threshold ? spam_limits{.spam_threshold = *spam_threshold, .false_positives = 100}
                                     : limits_of_user(m_working);
    settings.unsure_threshold = common_settings::get_value(common_value::unsure_threshold);
    settings.learned = m_learned;
    settings.spam_messages = m_spam_messages;
    settings.ham_messages = m_ham_messages;
    return mail_scorer([this](std::string_view token) { return grade(token); }, settings);
}

score_rule rule_of(const std::string& name) {
    return name == "graham"     ? score_rule::graham
           : name == "robinson" ? score_rule::robinson
           : name == "fisher"   ? score_rule::fisher
                                : score_rule::kinds;
}

} // namespace tvr
