#pragma once

#include <string>

#include "cli/arguments.h"
#include "store/store.h"

namespace zentadb {

// The configuration of the library, as the command line and the environment give it.
class Settings {
   public:
    // Adds the options for reading data, or also those for writing it.
    void declare_reading(Arguments& arguments);
    void declare_writing(Arguments& arguments);

    // The configuration for a store. By default, the store decides: its kind of hash, and its instance if it has only
    // one.
    [[nodiscard]] std::string config_for(const Store& store) const;
    // The configuration without a store.
    [[nodiscard]] std::string config() const;

   private:
    bool is_declared_ = false;  // a user gives them, and can be warned
    std::string config_;
    std::string instance_;
    std::string id_rules_;
    std::string indexed_;
    bool discard_id_ = false;
    bool flatten_objects_ = false;
    bool fast_hash_ = false;
};

}  // namespace zentadb
