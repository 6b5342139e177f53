#include "client/mail_record.h"

#include "client/tokenizer.h"

namespace tvr {

ipc_status add_mail(record_batch& batch, std::string_view raw, bool spam, bool manual, std::string* msid) {
    if (!looks_like_mail(raw))
        return {ipc_error::bad_message, "this is no mail: it doesn't begin with a header"};
    thread_local tokenizer cut;
    cut.tokenize(raw);
    if (!batch.add(describe(cut.facts(), raw.size(), spam, manual), cut.tokens()))
        return {ipc_error::bad_message, "the message is too large"};
    if (msid)
        *msid = cut.facts().msid;
    return {};
}

} // namespace tvr
