#pragma once

#include <string>

#include "c_api/zenta.h"

// What every fuzz target has: an input of any bytes. A failed expectation ends the process.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzzing {

// Expects a failure to be one that docs/errors.md lists.
void expect_described(const std::string& error);

// The same, and that a sync JSON that was answered can be opened again and is written as it was.
void expect_sound(const c_api::Answer& answer, bool is_sync_json);

}  // namespace fuzzing
