// SPDX-License-Identifier: MIT
// The calling thread's observers.
#include "standinhost/call_observer.h"

namespace vesk::standin {
namespace {

template <typename Observer>
struct Observation {
    Observer observer = nullptr;
    void* context = nullptr;
};

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): one for each thread
thread_local Observation<CallObserver> observation;
thread_local Observation<DecodingObserver> decodingObservation;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace

void observeCalls(CallObserver observer, void* context) {
    observation = {observer, context};
}

void observeDecoding(DecodingObserver observer, void* context) {
    decodingObservation = {observer, context};
}

void announceCall(HostCall call) {
    // The copy lets an observer remove or replace itself.
    const auto current = observation;
    if (current.observer != nullptr) current.observer(current.context, call);
}

void announcePiece(const DecodedPiece& piece) {
    const auto current = decodingObservation;
    if (current.observer != nullptr) current.observer(current.context, piece);
}

}  // namespace vesk::standin
