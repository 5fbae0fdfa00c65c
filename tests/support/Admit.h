#pragma once

#include "http/Request.h"
#include "streaming/Mount.h"

#include <memory>

// A listener's knock at a mount, to the end: also when another server is asked.
inline Admission admit(Mount& mount, const std::shared_ptr<Receiver>& receiver) {
    std::shared_ptr<Request> inquiry;
    Admission admission = mount.RegisterReceiver(receiver, inquiry);
    while (admission.status == Admission::PENDING) {
        inquiry->AwaitStep(20);
        admission = mount.RegisterReceiver(receiver, inquiry);
    }
    return admission;
}
