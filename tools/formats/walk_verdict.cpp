// What was learned from the user's own mail.

#include <algorithm>

#include "client/verdict/exact_math.h"
#include "client/verdict/judge.h"
#include "tools/formats/walks.h"

namespace tvr {

namespace {

double percent(double logit) {
    return 100 * exact_logistic(logit);
}

} // namespace

void walk_verdict(file_view& file, view_sink& sink) {
    verdict_state state;
    if (!parse_verdict(take_all(file, largest_verdict), state))
        return sink.defect(0, "damaged, or of another version: none of it is taken");
    const auto spam = std::ranges::count_if(state.messages, &judged_message::spam);
    const auto weights = state.memory.weights().all();
    const auto places = weights.size() - static_cast<std::size_t>(std::ranges::count(weights, 0));
    sink.field("messages judged", state.judged);
    sink.field("messages kept", std::uint64_t{state.messages.size()});
    sink.field("spam kept", static_cast<std::uint64_t>(spam));
    sink.field("not learned yet", std::uint64_t{state.unlearned});
    sink.field("trust", state.trust);
    if (!state.ham_scores.empty())
        sink.field("spam from", percent(spam_logit(state, {.spam_threshold = 0})));
    sink.field("places of the memory in use", std::uint64_t{places});
    sink.field("bias of the memory", static_cast<double>(state.memory.bias) / token_memory::unit);
    sink.field("tokens seen", std::uint64_t{state.seen.tokens()});
    sink.field("in spam messages", std::uint64_t{state.seen.messages(true)});
    sink.field("in ham messages", std::uint64_t{state.seen.messages(false)});
    sink.list("messages");
    for (const judged_message& message : state.messages)
        if (sink.wants_entry())
            sink.entry({{"time", moment(message.time)},
                        {"spam", message.spam},
                        {"score", percent(message.score / score_unit)},
                        {"learned score", percent(message.learned_score / score_unit)},
                        {"base spam", std::uint64_t{message.what.by_base.spam_messages}},
                        {"base ham", std::uint64_t{message.what.by_base.ham_messages}}});
}

} // namespace tvr
