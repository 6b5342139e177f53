// One mail as a training record.
#pragma once

#include <string>
#include <string_view>

#include "client/tvr_ipc.h"

namespace tvr {

// Cuts a raw mail into its tokens and adds it to the batch; `msid`, unless null, gets its message ID. Returns
// ipc_error::bad_message for what is no mail.
ipc_status add_mail(record_batch& batch, std::string_view raw, bool spam, bool manual,
                    std::string* msid = nullptr);

} // namespace tvr
