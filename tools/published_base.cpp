#include "tools/published_base.h"

#include "platform/file.h"
#include "settings/common_settings.h"
#include "tools/engine_view.h"

namespace tvr {

bool published_base::is_there() {
    const std::string working = common_settings::working_directory();
    return !working.empty() && platform::get_attributes(engine_view(working).base_path()).has_value();
}

bool published_base::load() {
    const std::string working = common_settings::working_directory();
    if (working.empty()) {
        m_error = "the user's folder can't be found or made";
        return false;
    }
    const engine_view view(working);
    const std::string shown = platform::display_path(view.base_path());
    if (!platform::get_attributes(view.base_path())) {
        m_error = shown + ": no base is published yet; train some spam and some ham first";
        return false;
    }
    if (!m_base.load(view.base_path())) {
        m_error = shown + ": damaged, or in use";
        return false;
    }
    return true;
}

double published_base::grade(std::string_view token) const {
    const platform::locker locker(m_base.lock);
    return m_base.grade(token);
}

mail_scorer published_base::scorer(score_rule rule, std::optional<double> spam_threshold) const {
    score_settings settings;
    settings.rule = rule;
    settings.spam_threshold =
        spam_threshold.value_or(common_settings::get_value(common_value::spam_threshold));
    settings.unsure_threshold = common_settings::get_value(common_value::unsure_threshold);
    return mail_scorer([this](std::string_view token) { return grade(token); }, settings);
}

score_rule rule_of(const std::string& name) {
    return name == "graham"     ? score_rule::graham
           : name == "robinson" ? score_rule::robinson
           : name == "fisher"   ? score_rule::fisher
                                : score_rule::kinds;
}

} // namespace tvr
