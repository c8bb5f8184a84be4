#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zentadb {

// Warns of something that does not end the run; the text may hold any data.
void warn(const std::string& what);

// Something that was left out, reported once for all documents that it happened to.
class Warning {
   public:
    // What follows the number of documents, of one and of more.
    Warning(std::string one, std::string more) : one_(std::move(one)), more_(std::move(more)) {}
    void add(const std::string& id) { documents_.push_back(id); }
    void print() const;

   private:
    std::string one_;
    std::string more_;
    std::vector<std::string> documents_;
};

}  // namespace zentadb
