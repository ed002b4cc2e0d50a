// The version `quen --version` and `quenctl --version` print.
#pragma once

constexpr const char* kQuenVersion = "1.0.0";
