#include "replication/sync_json_diff.h"

#include <array>
#include <map>
#include <span>
#include <stdexcept>
#include <string_view>

#include "json/writer.h"

namespace libzentadbpp {

namespace {

// The two parts of a flattened data set, and what their entries are.
constexpr std::array<std::string_view, 2> parts{"d", "o"};

std::span<const JsonMember> entries(const JsonValue& data, std::string_view part) {
    const JsonValue* value = data.find(part);
    return value == nullptr ? std::span<const JsonMember>{} : value->members();
}

// An entry as it is compared: one of another kind than its part holds counts as an empty one.
std::string_view comparable(const JsonValue& entry, std::string_view part, TextBuffer& text) {
    text.clear();
    if (part == "d") {
        write_json(JsonValue::array(entry.elements()), text);
    } else {
        write_json(JsonValue::object(entry.members()), text);
    }
    return text.view();
}

void write_operation(std::string_view op, std::string_view key, const JsonValue& value, const JsonValue* before,
                     TextBuffer& out) {
    out.push_back('{');
    if (before != nullptr) {
        out.append(R"("before": )");
        write_json(*before, out);
        out.append(", ");
    }
    out.append(R"("key": )");
    write_json_string(key, out);
    out.append(R"(, "op": ")");
    out.append(op);
    out.append(R"(", "value": )");
    write_json(value, out);
    out.push_back('}');
}

void write_part_diff(std::string_view part, std::span<const JsonMember> before, std::span<const JsonMember> after,
                     TextBuffer& out) {
    TextBuffer before_text;
    TextBuffer after_text;
    ListSeparator separator;
    const auto add = [&](std::string_view op, std::string_view key, const JsonValue& value,
                         const JsonValue* replaced = nullptr) {
        separator.append_to(out);
        write_operation(op, key, value, replaced, out);
    };
    out.push_back('[');
    auto theirs = after.begin();
    for (const auto& [key, entry] : before) {
        while (theirs != after.end() && theirs->key < key) ++theirs;
        if (theirs == after.end() || theirs->key != key) {
            add("remove", key, entry);
        } else if (comparable(entry, part, before_text) != comparable(theirs->value, part, after_text)) {
            add("replace", key, theirs->value, &entry);
        }
    }
    auto ours = before.begin();
    for (const auto& [key, entry] : after) {
        while (ours != before.end() && ours->key < key) ++ours;
        if (ours == before.end() || ours->key != key) add("add", key, entry);
    }
    out.push_back(']');
}

const JsonValue& required(const JsonValue& operation, std::string_view key) {
    const JsonValue* value = operation.find(key);
    if (value == nullptr) throw std::out_of_range("invalid map<K, T> key");
    return *value;
}

void write_patched_part(std::span<const JsonMember> before, const JsonValue* operations, TextBuffer& out) {
    std::map<std::string_view, const JsonValue*> patched;
    for (const auto& [key, entry] : before) patched.emplace_hint(patched.end(), key, &entry);
    if (operations != nullptr) {
        for (const JsonValue& operation : operations->elements()) {
            const bool removes = required(operation, "op").as_string() == "remove";
            const std::string_view key = required(operation, "key").as_string();
            if (removes) {
                patched.erase(key);
            } else {
                patched[key] = &required(operation, "value");
            }
        }
    }
    ListSeparator separator("{");
    for (const auto& [key, entry] : patched) {
        separator.append_to(out);
        write_json_string(key, out);
        out.append(": ");
        write_json(*entry, out);
    }
    out.append(patched.empty() ? "{}" : "}");
}

// Appends an object with the two parts.
template <class WritePart>
void write_parts(TextBuffer& out, const WritePart& write_part) {
    std::string_view separator = "{";
    for (const std::string_view part : parts) {
        write_json_key(part, separator, out);
        separator = ", ";
        write_part(part);
    }
    out.push_back('}');
}

}  // namespace

void write_diff(const JsonValue& before, const JsonValue& after, TextBuffer& out) {
    write_parts(
        out, [&](std::string_view part) { write_part_diff(part, entries(before, part), entries(after, part), out); });
}

void write_patched(const JsonValue& before, const JsonValue& diff, TextBuffer& out) {
    write_parts(out, [&](std::string_view part) { write_patched_part(entries(before, part), diff.find(part), out); });
}

}  // namespace libzentadbpp
