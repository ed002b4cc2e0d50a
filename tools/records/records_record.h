// The inspector's view of one persistent record: what kind it is, where it was found, whether
// it could be decoded, and its content as JSON (the one form that the text output, the JSON
// output and the plots are all made from).
//
// Decoders (records_decode.h) never throw and never trust the bytes: a damaged record gets
// ok = false and an error saying what is wrong; what could still be decoded stays in `data`.
// Units in `data`: times in seconds since the epoch (with a UTC "..._text" beside them),
// capacities mAh, voltages mV unless a key says uV, temperatures degC unless a key says mK.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

struct InspectedRecord {
    std::string kind;  // "sys_para", "basp", "asw", "cvt", "acr", "dcr", "eis"
    std::string path;  // where it was found, relative to the inspected root ("/log/soh/...")
    bool ok = false;
    std::string error;               // what is wrong when !ok
    std::vector<std::string> notes;  // facts worth knowing about a readable record
    Json::Value data;                // decoded content; null when nothing could be decoded

    void Fail(const std::string& why) {
        ok = false;
        error = why;
    }
};
