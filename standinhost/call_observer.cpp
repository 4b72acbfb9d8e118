// SPDX-License-Identifier: MIT
// The calling thread's observer of host calls.
#include "standinhost/call_observer.h"

namespace vesk::standin {
namespace {

struct Observation {
    CallObserver observer = nullptr;
    void* context = nullptr;
};

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): one for each thread
thread_local Observation observation;

}  // namespace

void observeCalls(CallObserver observer, void* context) {
    observation = {observer, context};
}

void announceCall(HostCall call) {
    // The copy lets an observer remove or replace itself.
    const Observation current = observation;
    if (current.observer != nullptr) current.observer(current.context, call);
}

}  // namespace vesk::standin
