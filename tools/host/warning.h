#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace zentadb {

// Tells people of something that does not end the run.
void warn(const std::string& what);

// Something that was left out, told once for all documents that it happened to.
class Warning {
   public:
    explicit Warning(std::string what) : what_(std::move(what)) {}
    void add(const std::string& id);
    [[nodiscard]] std::size_t count() const { return count_; }
    void tell() const;

   private:
    std::string what_;
    std::vector<std::string> examples_;
    std::size_t count_ = 0;
};

}  // namespace zentadb
