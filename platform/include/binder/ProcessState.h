// ProcessState: the platform's per-process binder state.
//
// Host build: startThreadPool() starts serving every service added so far, and every service
// added afterwards, on detached threads: one accepting thread per service and one thread per
// client connection, at most 16 connections at a time across the process (see
// platform/host/binder_wire.h). The threads are never stopped. Thread-safe; calling
// startThreadPool() again does nothing.
#pragma once

#include <utils/RefBase.h>

namespace android {

class ProcessState : public virtual RefBase {
public:
    // The process's state (created on first use, never destroyed).
    static sp<ProcessState> self();
    void startThreadPool();

protected:
    ProcessState();
    ~ProcessState() override;
};

}  // namespace android
