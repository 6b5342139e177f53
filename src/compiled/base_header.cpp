#include "compiled/base_header.h"

namespace tvr {

base_header::base_header() : header(signature) {
    header.add(nonspam_messages, 0)
        .add(spam_messages, 0)
        .add(spam_tokens, 0)
        .add(nonspam_tokens, 0)
        .add(spam_oldest, 0)
        .add(spam_newest, 0)
        .add(nonspam_oldest, 0)
        .add(nonspam_newest, 0);
}

} // namespace tvr
