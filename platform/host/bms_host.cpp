// Host battery-management library: boot modes and properties from the property store,
// big-data events appended as JSON lines to $QUEN_ROOT/bms/bigdata.jsonl.
#include <bms_interface.h>
#include <errno.h>
#include <fcntl.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/host/property_store.h"
#include "platform/soh_root.h"

namespace {

bool PropertyIs(const char* key, const char* expected) {
    std::string v;
    return PropertyStore::Get(key, v) && v == expected;
}

// One event under construction: its id and the JSON text of its fields so far.
struct Event {
    uint32_t id = 0;
    std::string fields;
};

void AppendJsonString(std::string& out, const char* s) {
    out += '"';
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(s); *p != 0; ++p) {
        switch (*p) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (*p < 0x20) {
                    char esc[8];
                    snprintf(esc, sizeof(esc), "\\u%04x", *p);
                    out += esc;
                } else {
                    out += static_cast<char>(*p);
                }
        }
    }
    out += '"';
}

int AddField(void* handle, const char* key, const char* type, const std::string& value) {
    if (handle == nullptr || key == nullptr) {
        return -1;
    }
    Event* ev = static_cast<Event*>(handle);
    if (!ev->fields.empty()) {
        ev->fields += ',';
    }
    ev->fields += "{\"key\":";
    AppendJsonString(ev->fields, key);
    ev->fields += ",\"type\":\"";
    ev->fields += type;
    ev->fields += "\",\"value\":";
    ev->fields += value;
    ev->fields += '}';
    return 0;
}

}  // namespace

extern "C" {

bool BmsPropertyIsChargerMode(void) {
    return PropertyIs("ro.bootmode", "charger");
}
bool BmsPropertyIsFactoryMode(void) {
    return PropertyIs("ro.bootmode", "factory");
}
bool BmsPropertyIsNormalMode(void) {
    std::string v;
    return !PropertyStore::Get("ro.bootmode", v) || v.empty() || v == "normal";
}
bool BmsPropertyIsDemoVersion(void) {
    return PropertyIs("ro.product.demo", "1");
}

int BmsPropertyGetValue(const char* key, char* value, unsigned int len) {
    std::string v;
    if (value == nullptr || len == 0 || !PropertyStore::Get(key, v) || v.size() + 1 > len) {
        return -1;
    }
    memcpy(value, v.c_str(), v.size() + 1);
    return 0;
}

int BmsPropertySetValue(const char* key, const char* value) {
    return PropertyStore::Set(key, value) ? 0 : -1;
}

void* BmsBigDataCreate(int /*selector*/, uint32_t eventId) {
    struct stat st {};
    if (stat(SohRoot::RootPath("/bms/unavailable").c_str(), &st) == 0) {
        return nullptr;
    }
    Event* ev = new Event;
    ev->id = eventId;
    return ev;
}

int BmsBigDataWriteInt(int /*selector*/, void* handle, const char* key, int value) {
    return AddField(handle, key, "int", std::to_string(value));
}

int BmsBigDataWriteLong(int /*selector*/, void* handle, const char* key, long value) {
    return AddField(handle, key, "long", std::to_string(value));
}

int BmsBigDataWriteFloat(int /*selector*/, void* handle, const char* key, float value) {
    if (!isfinite(value)) {
        return AddField(handle, key, "float", "null");
    }
    char text[48];
    snprintf(text, sizeof(text), "%.9g", static_cast<double>(value));
    return AddField(handle, key, "float", text);
}

int BmsBigDataWriteString(int /*selector*/, void* handle, const char* key, const char* value) {
    if (value == nullptr) {
        return -1;
    }
    std::string text;
    AppendJsonString(text, value);
    return AddField(handle, key, "string", text);
}

int BmsBigDataWriteArrayInt(int /*selector*/, void* handle, const char* key, const int* value,
                            unsigned int count) {
    if (value == nullptr && count != 0) {
        return -1;
    }
    std::string text = "[";
    for (unsigned int i = 0; i < count; ++i) {
        if (i != 0) {
            text += ',';
        }
        text += std::to_string(value[i]);
    }
    text += ']';
    return AddField(handle, key, "int[]", text);
}

int BmsBigDataSend(int /*selector*/, void* handle) {
    if (handle == nullptr) {
        return -1;
    }
    const Event* ev = static_cast<const Event*>(handle);
    std::string line = "{\"id\":" + std::to_string(ev->id) + ",\"fields\":[" + ev->fields + "]}\n";
    std::string dir = SohRoot::RootPath("/bms");
    mkdir(dir.c_str(), 0755);
    int fd =
        open((dir + "/bigdata.jsonl").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) {
        return -1;
    }
    // One write: concurrent senders never interleave within a line.
    ssize_t n;
    do {
        n = write(fd, line.data(), line.size());
    } while (n < 0 && errno == EINTR);
    close(fd);
    return n == static_cast<ssize_t>(line.size()) ? 0 : -1;
}

void BmsBigDataDestroy(int /*selector*/, void* handle) {
    delete static_cast<Event*>(handle);
}

}  // extern "C"
