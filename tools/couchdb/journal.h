#pragma once

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace zentadb {

// What a long pull has received so far, line by line, so that an interrupted one continues where it stopped. The store
// itself changes only when all is there: half of the data would look as if the other half had been removed.
class Journal {
   public:
    using Json = nlohmann::json;

    // Reads what an interrupted pull of this session left; ignores any other file.
    Journal(std::string path, const std::string& session);

    [[nodiscard]] const std::vector<Json>& lines() const { return lines_; }
    [[nodiscard]] bool has_begun() const { return out_.is_open(); }
    void begin(const std::string& session);
    void add(const Json& line);
    void remove();

   private:
    std::string path_;
    std::vector<Json> lines_;
    std::ofstream out_;
};

}  // namespace zentadb
