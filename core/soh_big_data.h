// SOHBigData: one big-data (health) event under construction, for the platform's reporter.
//
// The constructor creates the event for an event identifier; the Set overloads add named
// fields; Send hands the event to the reporter; the destructor destroys it. Callers check
// Available() once after construction and give up when it is false. Nothing is checked
// here: Set and Send pass the handle on even when it is null and return the platform call's
// result unchanged (0 success, otherwise failure). Nothing is logged.
//
// Ownership: the object owns the event handle; not copyable. Threads: one builder belongs to
// one thread for the duration of one report.
#pragma once

#include <cstdint>

class SOHBigData {
public:
    explicit SOHBigData(uint32_t eventId);
    virtual ~SOHBigData();
    SOHBigData(const SOHBigData&) = delete;
    SOHBigData& operator=(const SOHBigData&) = delete;

    // True when the reporter created the event.
    bool Available() const { return handle_ != nullptr; }

    int Set(const char* key, const char* value);
    int Set(const char* key, int value);
    int Set(const char* key, long value);
    int Set(const char* key, float value);
    // `count` ints from `values`.
    int Set(const char* key, const int* values, unsigned count);

    // Sends the event; callers send an event at most once.
    int Send();

private:
    void* handle_ = nullptr;  // the reporter's event; null when creation failed
};
