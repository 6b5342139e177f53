#include "platform/win32/errors.h"

#include "platform/win32/system.h"

namespace tvr::platform::win32 {

bool fail_last() noexcept {
    return fail(GetLastError());
}

} // namespace tvr::platform::win32
