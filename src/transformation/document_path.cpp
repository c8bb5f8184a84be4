#include "transformation/document_path.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "common/number_text.h"
#include "documents/document_storage.h"

namespace libzentadbpp {

namespace {

// Text and then every later step may hold the pattern again: what was inserted is never scanned.
std::string replace_all(std::string_view text, std::string_view pattern, std::string_view replacement) {
    std::string result;
    std::size_t begin = 0;
    for (std::size_t at; (at = text.find(pattern, begin)) != std::string_view::npos; begin = at + pattern.size()) {
        result.append(text.substr(begin, at - begin)).append(replacement);
    }
    return result.append(text.substr(begin));
}

// What a number adds to an id: its whole part, where that fits 64 bits.
bool append_whole_part(double value, std::string& id) {
    constexpr double limit = 9223372036854775808.0;  // 2^63
    const double whole = std::trunc(value);
    if (!(whole >= -limit && whole < limit)) return false;
    std::array<char, longest_number> digits;
    id.append(digits.data(), write_integer(static_cast<std::int64_t>(whole), digits.data()));
    return true;
}

}  // namespace

bool apply_rule(const IdGenerationRule& rule, const JsonValue& object, std::string& id) {
    id.clear();
    for (const KeyPath& path : rule) {
        if (path.empty()) return false;
        const JsonValue* found = &object;
        for (const std::string& key : path) {
            found = found->find(key);
            if (found == nullptr) return false;
        }
        if (found->is_number()) {
            if (!append_whole_part(found->as_real(), id)) return false;
        } else if (const auto text = found->as_string(); !text.empty()) {
            id.append(text);
        } else {
            return false;
        }
    }
    return true;
}

std::string IdGenerator::path_text(const DocumentPath& path) {
    std::vector<const DocumentPath*> steps;
    for (const DocumentPath* step = &path; step != nullptr; step = step->parent) steps.push_back(step);
    std::string text;
    for (auto at = steps.rbegin(); at != steps.rend(); ++at) {
        const DocumentPath& step = **at;
        switch (step.step) {
            case DocumentPath::Step::top:
                break;
            case DocumentPath::Step::root:
                text.append(vocabulary::root_path);
                break;
            case DocumentPath::Step::member:
                text.append(step.text).append(vocabulary::key_separator);
                break;
            case DocumentPath::Step::object:
                if (step.object_id.data() == nullptr) step.object_id = object_id(*step.object, *step.parent);
                text.append(vocabulary::object_path_open).append(step.object_id).append(vocabulary::path_close);
                break;
            case DocumentPath::Step::array:
                text.append(vocabulary::array_path_open).append(step.text).append(vocabulary::path_close);
                break;
            case DocumentPath::Step::position:
                text.append(step.text);
                break;
            case DocumentPath::Step::plain_array:
                text.append(vocabulary::array_path_open);
                break;
        }
    }
    return text;
}

std::string_view IdGenerator::path_hash(const DocumentPath& path) { return arena_->copy((*hasher_)(path_text(path))); }

std::string_view IdGenerator::object_id(const JsonValue& object, const DocumentPath& path) {
    if (const JsonValue* id = object.find(vocabulary::id_key); id != nullptr && id->is_string()) {
        return id->as_string().empty() ? std::string_view("") : id->as_string();
    }
    std::string id;
    for (const IdGenerationRule& rule : settings_->id_generation_rules) {
        if (apply_rule(rule, object, id)) return arena_->copy(id);
    }
    return path.empty() ? vocabulary::root_name : path_hash(path);
}

std::string_view IdGenerator::array_domain(const DocumentPath& path) {
    return path.empty() ? vocabulary::root_name : path_hash(path);
}

std::string ordering_id(std::string_view instance_id, std::string_view domain, DataHasher& hasher) {
    const std::string text =
        replace_all(replace_all(vocabulary::ordering_id_format, "%instanceid%", instance_id), "%domain%", domain);
    return std::string(ordering_id_prefix).append(hasher(text));
}

}  // namespace libzentadbpp
