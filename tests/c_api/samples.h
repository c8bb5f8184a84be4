#pragma once

#include <string>
#include <vector>

namespace c_api {

struct Sample {
    std::string name;
    std::string sync_json;
};

// Document sets of every kind, all with the root "root", each as the library writes it.
const std::vector<Sample>& samples();

// One that has branches, contents, a deletion and ordering documents.
const std::string& rich_sample();

}  // namespace c_api
