#pragma once

#include <string>

#include "choices.h"

namespace fuzzing {

// Texts with the shape of what the library takes, and now and then with damage that a reader has to withstand. Ids,
// hashes and domains come from a few, so that they meet.
class Generator {
   public:
    explicit Generator(Choices& choices) : choices_(choices) {}

    std::string json(std::size_t levels = 3);
    std::string host_object(std::size_t levels = 3);
    std::string sync_json();
    std::string any_set();  // also compressed ones, written ones, and texts that are not sets
    std::string documents();
    std::string configuration();
    std::string bulk_get();
    std::string patch();
    std::string id();
    std::string ids();
    std::string revision();
    std::string number();

   private:
    std::string string();
    std::string key();
    std::string content(std::size_t levels = 3);
    std::string history(std::size_t levels);
    std::string entry();
    std::string list(std::size_t most, std::string (Generator::*element)(std::size_t), std::size_t levels);
    std::string list_operations(bool of_histories);

    Choices& choices_;
};

// As the library's own compressed objects are, with any claim about the size.
std::string compressed_object(const std::string& stream, const std::string& claimed_size);

}  // namespace fuzzing
