// In place of mail_record.cpp where there is no mail parser.

#include "client/mail_record.h"

namespace tvr {

ipc_status add_mail(record_batch&, std::string_view, bool, bool, std::string*) {
    return {ipc_error::no_mail, "this build of the library parses no mail"};
}

} // namespace tvr
