// SPDX-License-Identifier: MIT
// The calling thread's pending exception.
#include <optional>
#include <utility>

#include "module/host/host_runtime.h"
#include "standinhost/call_observer.h"
#include "standinhost/standin_host.h"

namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): one for each thread
thread_local std::optional<vesk::standin::PendingError> pendingError;

}  // namespace

void Vesk_raise(const char* className, const char* message) {
    if (!pendingError) pendingError = {className, message};
}

int Vesk_hasPendingError(void) {
    vesk::standin::announceCall(vesk::standin::HostCall::hasPendingError);
    return pendingError.has_value() ? 1 : 0;
}

std::optional<vesk::standin::PendingError> vesk::standin::takePendingError() {
    return std::exchange(pendingError, std::nullopt);
}
