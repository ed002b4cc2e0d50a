// Parsers of the limit lines (see node_codec.h).
#include "sim/model/node_codec.h"

#include <vector>

#include "sim/model/model_params.h"

namespace sim {
namespace kernel {

namespace {

// The words of a line, or false when the line has other white space than single separating
// spaces (one trailing "\n" is allowed).
bool Words(std::string line, std::vector<std::string>& words) {
    if (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    words.clear();
    if (line.empty()) {
        return false;
    }
    size_t start = 0;
    for (;;) {
        const size_t space = line.find(' ', start);
        const std::string word = line.substr(start, space - start);
        if (word.empty()) {
            return false;
        }
        for (char c : word) {
            if (c < 0x21 || c > 0x7e) {
                return false;  // control characters, NUL, tabs, non-ASCII
            }
        }
        words.push_back(word);
        if (space == std::string::npos) {
            return true;
        }
        start = space + 1;
    }
}

bool Number(const std::string& word, int64_t lo, int64_t hi, int32_t& value) {
    size_t i = word[0] == '-' ? 1 : 0;
    if (i == word.size() || word.size() - i > 11) {
        return false;
    }
    int64_t x = 0;
    for (; i < word.size(); ++i) {
        if (word[i] < '0' || word[i] > '9') {
            return false;
        }
        x = x * 10 + (word[i] - '0');
    }
    if (word[0] == '-') {
        x = -x;
    }
    if (x < lo || x > hi) {
        return false;
    }
    value = static_cast<int32_t>(x);
    return true;
}

}  // namespace

bool ParseTypedLine(const std::string& line, int64_t lo, int64_t hi, std::string& type,
                    int32_t& value) {
    std::vector<std::string> w;
    if (!Words(line, w) || w.size() != 3 || w[0] != "quen" ||
        (w[1] != "all" && !IsChargerTypeWord(w[1]))) {
        return false;
    }
    int32_t v = 0;
    if (!Number(w[2], lo, hi, v)) {
        return false;
    }
    type = w[1];
    value = v;
    return true;
}

bool ParseSocControl(const std::string& line, int32_t& enable, int32_t& low, int32_t& high) {
    std::vector<std::string> w;
    int32_t e = 0;
    int32_t l = 0;
    int32_t h = 0;
    if (!Words(line, w) || w.size() != 4 || w[0] != "quen" || !Number(w[1], 0, INT32_MAX, e) ||
        !Number(w[2], 0, 100, l) || !Number(w[3], 0, 100, h) || l > h) {
        return false;
    }
    enable = e;
    low = l;
    high = h;
    return true;
}

bool ParseSocStrategy(const std::string& line, int32_t& type) {
    std::vector<std::string> w;
    return Words(line, w) && w.size() == 2 && w[0] == "quen" && Number(w[1], 0, INT32_MAX, type);
}

bool ParseDecimal(const std::string& line, int64_t lo, int64_t hi, int32_t& value) {
    std::vector<std::string> w;
    return Words(line, w) && w.size() == 1 && Number(w[0], lo, hi, value);
}

bool ParseAswReport(const std::string& line, uint32_t& scene, bool& malformed) {
    malformed = false;
    if (line.compare(0, 3, "asw") != 0) {
        return false;
    }
    std::vector<std::string> w;
    int32_t n = 0;
    if (!Words(line, w) || w.size() != 2 || w[0] != "asw" || !Number(w[1], 0, INT32_MAX, n)) {
        malformed = true;
        return false;
    }
    scene = static_cast<uint32_t>(n);
    return true;
}

}  // namespace kernel
}  // namespace sim
