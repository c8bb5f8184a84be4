#include "transformation/document_path.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
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

// The steps that lead to a path, the last one first, back to the first for which `ends` holds.
template <class Ends>
std::vector<const DocumentPath*> steps_from(const DocumentPath* step, const Ends& ends) {
    std::vector<const DocumentPath*> steps;
    for (; step != nullptr; step = step->parent) {
        steps.push_back(step);
        if (ends(*step)) break;
    }
    return steps;
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

void IdGenerator::append_step(const DocumentPath& step, std::string& text) {
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

std::string IdGenerator::path_text(const DocumentPath& path) {
    std::string text;
    const auto steps = steps_from(&path, [](const DocumentPath&) { return false; });
    for (auto at = steps.rbegin(); at != steps.rend(); ++at) append_step(**at, text);
    return text;
}

// Paths are short as a rule, and hashed as one text. Along a long one, with keys of any length, many arrays and objects
// may share what comes before them: its hash is kept on the way, or each of them would hash it again.
std::string_view IdGenerator::path_hash(const DocumentPath& path) {
    constexpr std::size_t long_text = 1024;
    const auto is_kept = [](const DocumentPath& step) { return step.hash_so_far != nullptr; };
    const auto steps = steps_from(&path, is_kept);
    const DocumentPath& oldest = *steps.back();
    std::optional<RunningHash> hash;
    if (is_kept(oldest)) hash.emplace(*oldest.hash_so_far);
    std::string text;
    for (auto at = steps.rbegin(); at != steps.rend(); ++at) {
        const DocumentPath& step = **at;
        if (is_kept(step)) continue;
        append_step(step, text);
        if (text.size() < long_text) continue;
        if (!hash) hash.emplace(hasher_->kind());
        hash->add(text);
        text.clear();
        step.hash_so_far = std::make_shared<const RunningHash>(*hash);
    }
    if (!hash) return arena_->copy((*hasher_)(text));
    hash->add(text);
    return arena_->copy(hash->finish());
}

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
