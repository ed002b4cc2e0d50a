// The battery-management interface library: boot-mode queries, its property access and the
// big-data (health event) reporter.
//
// Host build: properties share the store of <cutils/properties.h>; events are appended as
// one JSON line each to $QUEN_ROOT/bms/bigdata.jsonl when sent; while the file
// $QUEN_ROOT/bms/unavailable exists BmsBigDataCreate returns null. An event handle belongs
// to the caller until BmsBigDataDestroy; handles are not shared between threads.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

bool BmsPropertyIsChargerMode(void);  // ro.bootmode == "charger"
bool BmsPropertyIsFactoryMode(void);  // ro.bootmode == "factory"
bool BmsPropertyIsNormalMode(void);   // ro.bootmode unset or "normal"
bool BmsPropertyIsDemoVersion(void);  // ro.product.demo == "1"

// Copies the property's value, NUL-terminated, into value[0..len). Returns 0 on success,
// -1 when the property is unset, the arguments are invalid or the value does not fit.
int BmsPropertyGetValue(const char* key, char* value, unsigned int len);
// Returns 0 on success, -1 on failure.
int BmsPropertySetValue(const char* key, const char* value);

// Every call takes a selector first (0, or 1 for Send). Results: 0 success, -1 failure
// (also for a null handle).
void* BmsBigDataCreate(int selector, uint32_t eventId);
int BmsBigDataWriteInt(int selector, void* handle, const char* key, int value);
int BmsBigDataWriteLong(int selector, void* handle, const char* key, long value);
int BmsBigDataWriteFloat(int selector, void* handle, const char* key, float value);
int BmsBigDataWriteString(int selector, void* handle, const char* key, const char* value);
int BmsBigDataWriteArrayInt(int selector, void* handle, const char* key, const int* value,
                            unsigned int count);
int BmsBigDataSend(int selector, void* handle);
void BmsBigDataDestroy(int selector, void* handle);

#ifdef __cplusplus
}
#endif
