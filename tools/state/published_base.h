// The published base of the user, for those who grade mail by it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/score.h"
#include "client/token_grades.h"
#include "compiled/hashreg.h"

namespace tvr {

// Immutable after load(). grade() by any thread.
class published_base {
public:
    [[nodiscard]] static bool is_there(); // that is, one has been published
    // The reason of a failure, or an empty text.
    [[nodiscard]] std::string load();
    // The same for these tokens alone, which stay as long as this object: in a fraction of the time.
    [[nodiscard]] std::string load_for(const token_table& tokens);
    // What is wrong with what was learned from the user's mail, in one line: the built-in weights stand in
    // for it. Empty if nothing is.
    [[nodiscard]] const std::string& remark() const noexcept { return m_remark; }
    double grade(std::string_view token) const;
    // A scorer with the user's thresholds, or another one for spam; lives no longer than this object.
    [[nodiscard]] mail_scorer scorer(score_rule rule = score_rule::kinds,
                                     std::optional<double> spam_threshold = std::nullopt) const;

private:
    std::string load(const std::function<std::string(const std::string& path)>& read, const verdict_use& use);
    void load_learned(const std::string& path, const verdict_use& use);

    mutable std::optional<hashreg> m_base;
    std::optional<token_grades> m_few; // in place of the base
    std::uint32_t m_spam_messages = 0, m_ham_messages = 0;
    std::string m_working; // folder
    std::shared_ptr<const verdict_state> m_learned;
    std::string m_remark;
};

// A rule by its name: kinds, graham, robinson, fisher.
[[nodiscard]] score_rule rule_of(const std::string& name);

} // namespace tvr
