#include "transformation/document_path.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "documents/document_storage.h"
#include "json/number_text.h"
#include "memory/small_stack.h"

namespace libzentadbpp {

namespace {

// What lies before, between and behind the occurrences of a pattern.
std::vector<std::string> pieces_around(std::string_view text, std::string_view pattern) {
    std::vector<std::string> pieces;
    std::size_t begin = 0;
    for (std::size_t at; (at = text.find(pattern, begin)) != std::string_view::npos; begin = at + pattern.size()) {
        pieces.emplace_back(text.substr(begin, at - begin));
    }
    pieces.emplace_back(text.substr(begin));
    return pieces;
}

void join(std::span<const std::string> pieces, std::string_view separator, std::string& joined) {
    joined = pieces.front();
    for (const std::string& piece : pieces.subspan(1)) joined.append(separator).append(piece);
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
using Steps = SmallStack<const DocumentPath*, 16>;
template <class Ends>
void collect_steps(const DocumentPath* step, const Ends& ends, Steps& steps) {
    for (; step != nullptr; step = step->parent) {
        steps.push(step);
        if (ends(*step)) break;
    }
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
    Steps steps;
    collect_steps(
        &path, [](const DocumentPath&) { return false; }, steps);
    for (; !steps.empty(); steps.pop()) append_step(*steps.top(), text);
    return text;
}

// Paths are short as a rule, and hashed as one text. Along a long one, with keys of any length, many arrays and objects
// may share what comes before them: its hash is kept on the way, or each of them would hash it again.
ArrayDomain IdGenerator::path_hash(const DocumentPath& path) {
    constexpr std::size_t long_text = 1024;
    Steps steps;
    collect_steps(
        &path, [](const DocumentPath& step) { return step.hash_so_far != nullptr; }, steps);
    std::optional<RunningHash> hash;
    if (steps.top()->hash_so_far != nullptr) {
        hash.emplace(*steps.top()->hash_so_far);
        steps.pop();
    }
    std::string text = std::exchange(spare_text_, {});  // making an id on the way may come back here
    text.clear();
    for (; !steps.empty(); steps.pop()) {
        const DocumentPath& step = *steps.top();
        append_step(step, text);
        if (text.size() < long_text) continue;
        if (!hash) hash.emplace(hasher_->kind());
        hash->add(text);
        text.clear();
        step.hash_so_far = &kept_hashes_.emplace_back(*hash);
    }
    ArrayDomain result;
    if (hash) {
        hash->add(text);
        result.text = arena_->copy(hash->finish());
    } else if (paths_ == nullptr) {
        result.text = arena_->copy((*hasher_)(text));
    } else {
        result.path = paths_->ask(text);
        PathMemory::Path& known = paths_->path(*result.path);
        if (known.hash.data() == nullptr) known = {arena_->copy(text), arena_->copy((*hasher_)(text)), {}};
        result.text = known.hash;
    }
    spare_text_ = std::move(text);
    return result;
}

std::string_view IdGenerator::object_id(const JsonValue& object, const DocumentPath& path) {
    if (const JsonValue* id = object.find(vocabulary::id_key); id != nullptr && id->is_string()) {
        return id->as_string().empty() ? std::string_view("") : id->as_string();
    }
    std::string id;
    for (const IdGenerationRule& rule : settings_->id_generation_rules) {
        if (apply_rule(rule, object, id)) return arena_->copy(id);
    }
    return path.empty() ? vocabulary::root_name : path_hash(path).text;
}

ArrayDomain IdGenerator::array_domain(const DocumentPath& path) {
    return path.empty() ? ArrayDomain{vocabulary::root_name} : path_hash(path);
}

std::string_view IdGenerator::ordering_id(const ArrayDomain& domain) {
    if (!domain.path) return ordering_ids_.id(domain.text, *hasher_, *arena_);
    std::string_view& known = paths_->path(*domain.path).ordering_id;
    if (known.data() == nullptr) known = ordering_ids_.id(domain.text, *hasher_, *arena_);
    return known;
}

OrderingIds::OrderingIds(std::string_view instance_id) {
    std::string format;
    join(pieces_around(vocabulary::ordering_id_format, "%instanceid%"), instance_id, format);
    // An instance id may hold the other placeholder; it is filled in there as well.
    pieces_ = pieces_around(format, "%domain%");
}

std::string_view OrderingIds::id(std::string_view domain, DataHasher& hasher, Arena& arena) {
    join(pieces_, domain, name_);
    const std::string_view hash = hasher(name_);
    char* const id = static_cast<char*>(arena.allocate(ordering_id_prefix.size() + hash.size(), 1));
    std::ranges::copy(hash, std::ranges::copy(ordering_id_prefix, id).out);
    return {id, ordering_id_prefix.size() + hash.size()};
}

}  // namespace libzentadbpp
