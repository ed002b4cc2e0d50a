// Parsing JSON text without letting the parser's exceptions out. jsoncpp throws for some
// inputs instead of returning false (text nested deeper than its stack limit, for example);
// nothing in this code base may let an exception escape, so every parse of text that comes
// from a file goes through here.
//
// Stateless; any thread.
#pragma once

#include <json/json.h>

#include <string>

namespace SohJson {

// Parses `text` into `out` (comments allowed; kept when `keepComments`). False, with the
// parser's message in `*errors` when given, on any failure; `out` is then unspecified.
bool Parse(const std::string& text, Json::Value& out, bool keepComments = false,
           std::string* errors = nullptr);

}  // namespace SohJson
