// The published base of the user, for those who grade mail by it.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "client/score.h"
#include "compiled/hashreg.h"

namespace tvr {

// Immutable after load(). grade() by any thread.
class published_base {
public:
    [[nodiscard]] static bool is_there(); // that is, one has been published
    // The reason of a failure, or an empty text.
    [[nodiscard]] std::string load();
    // What is wrong with what was learned from the user's mail, in one line: the built-in weights stand in
    // for it. Empty if nothing is.
    [[nodiscard]] const std::string& remark() const noexcept { return m_remark; }
    double grade(std::string_view token) const;
    // A scorer with the user's thresholds, or another one for spam; lives no longer than this object.
    [[nodiscard]] mail_scorer scorer(score_rule rule = score_rule::kinds,
                                     std::optional<double> spam_threshold = std::nullopt) const;

private:
    void load_learned(const std::string& path);

    mutable hashreg m_base;
    std::shared_ptr<const verdict_state> m_learned;
    std::string m_remark;
};

// A rule by its name: kinds, graham, robinson, fisher.
[[nodiscard]] score_rule rule_of(const std::string& name);

} // namespace tvr
