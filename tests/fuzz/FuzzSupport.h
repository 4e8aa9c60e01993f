#pragma once

#include <QString>

namespace fuzz {

// Sends the product's log records nowhere: millions of them would only slow the run down.
void silenceLog();

// Stops the run (libFuzzer then saves the input) when `holds` is false.
void require(bool holds, const char* what);

} // namespace fuzz
