#include "core/soh_json.h"

#include <exception>
#include <memory>

namespace SohJson {

bool Parse(const std::string& text, Json::Value& out, bool keepComments, std::string* errors) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = keepComments;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string messages;
    bool ok = false;
    try {
        ok = reader->parse(text.data(), text.data() + text.size(), &out, &messages);
    } catch (const std::exception& e) {
        messages = e.what();
        ok = false;
    }
    if (errors != nullptr) {
        *errors = messages;
    }
    return ok;
}

}  // namespace SohJson
