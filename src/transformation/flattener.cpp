#include "transformation/flattener.h"

#include <algorithm>
#include <array>
#include <string>

#include "contents/ordering_content.h"
#include "json/error.h"
#include "json/number_text.h"
#include "json/writer.h"
#include "text/short_text.h"
#include "text/text_order.h"

namespace libzentadbpp {

namespace {

using Step = DocumentPath::Step;

void write_reference(char marker, std::string_view target, TextBuffer& out) {
    out.push_back('"');
    out.push_back(marker);
    write_json_escaped(target, out);
    out.push_back('"');
}

void write_marked_string(const JsonValue& string, TextBuffer& out) {
    const std::string_view written = string.written_string();
    if (written.data() == nullptr) return write_reference(vocabulary::literal_string_marker, string.as_string(), out);
    char* at = out.grow(written.size() + 3);
    *at++ = '"';
    *at++ = vocabulary::literal_string_marker;
    at = copy_short(written, at);
    *at = '"';
}

// Whether an object has one of the two members that the flattener looks for, which come before nearly all others.
bool has_marker(const JsonValue& object, std::string_view key) {
    const auto members = object.members();
    const auto first_byte = [](std::string_view text) {
        return text.empty() ? 0 : static_cast<unsigned char>(text[0]);
    };
    return !members.empty() && first_byte(members.front().key) <= first_byte(key) && object.find(key) != nullptr;
}

bool is_array_of_objects(const JsonValue& array) {
    return std::ranges::all_of(array.elements(), [](const JsonValue& element) { return element.is_object(); });
}

}  // namespace

Flattener::Flattener(const TransformationSettings& settings, DataHasher& hasher, Arena& arena, PathMemory* paths,
                     ExpectedDocuments* expected)
    : settings_(&settings),
      arena_(&arena),
      ids_(settings, hasher, arena, paths),
      expected_(expected),
      domains_(paths == nullptr ? 0 : paths->expected()) {
    if (expected != nullptr) produced_.reserve(expected->size());
}

bool Flattener::splits(const JsonValue& object) const {
    return settings_->flatten_objects || has_marker(object, vocabulary::do_flatten_key);
}

std::string_view Flattener::flatten(const JsonValue& data) {
    if (!data.is_object()) {
        raise<FlattenerException>(source::flattener, "operator ()", "expecting_root_object_after_flattening");
    }
    const DocumentPath top;
    root_id_ = ids_.object_id(data, top);
    flatten_document(data, top, root_id_, no_array);
    refuse_clashes(data);
    return root_id_;
}

// What an array stores and an object that is split off must not become one document. A second walk finds which object
// it is.
void Flattener::refuse_clashes(const JsonValue& data) {
    if (clashing_id_) return;
    const auto clashes = [&](const Produced& produced) {
        return produced.array != no_array && object_ids_.find(produced.document.id);
    };
    const auto clash = object_ids_.empty() ? produced_.end() : std::ranges::find_if(produced_, clashes);
    if (clash == produced_.end()) return;
    clashing_id_ = clash->document.id;
    object_ids_ = TextTable();
    domains_ = TextTable();
    arrays_.clear();
    flatten_document(data, DocumentPath(), root_id_, no_array);
}

// Where several elements have one id, they are stored in the order of their arrays' domains.
Flattener::Sorted Flattener::sorted(Which which) const {
    LargeVector<std::uint32_t> produced;
    LargeVector<std::string_view> ids;
    if (which == Which::all) {
        produced.reserve(produced_.size());
        ids.reserve(produced_.size());
    }
    for (std::uint32_t at = 0; at < produced_.size(); ++at) {
        if (which == Which::not_unchanged && produced_[at].unchanged != not_expected) continue;
        produced.push_back(at);
        ids.push_back(produced_[at].document.id);
    }
    auto [order, any_repeated] = text_order_and_equals(ids);
    for (auto first = order.begin(); any_repeated && first != order.end();) {
        auto end = first + 1;
        while (end != order.end() && ids[*end] == ids[*first]) ++end;
        if (end - first > 1) {
            std::ranges::stable_sort(first, end, {}, [&](std::uint32_t at) {
                const std::uint32_t array = produced_[produced[at]].array;
                return array == no_array ? std::string_view{} : arrays_[array].domain;
            });
        }
        first = end;
    }
    std::vector<FlattenedDocument> documents;
    documents.reserve(order.size());
    for (std::uint32_t& at : order) {
        at = produced[at];
        documents.push_back(produced_[at].document);
    }
    return {std::move(documents), std::move(order), any_repeated};
}

// What is as it was expected is not copied.
void Flattener::produce(std::string_view id, std::string_view content, std::uint32_t array) {
    const LastUpdate::Produced* const unchanged =
        expected_ == nullptr ? nullptr : expected_->find_unchanged(id, content);
    if (unchanged == nullptr) {
        produced_.push_back({{id, arena_->copy(content)}, array, not_expected});
    } else {
        produced_.push_back({{id, unchanged->content}, array, unchanged->number});
    }
}

TextBuffer& Flattener::free_buffer() {
    if (open_documents_ == buffers_.size()) buffers_.emplace_back();
    TextBuffer& buffer = buffers_[open_documents_];
    buffer.clear();
    return buffer;
}

void Flattener::produce_order(const ArrayDomain& domain, std::span<const std::string_view> element_ids,
                              std::uint32_t array) {
    TextBuffer& content = free_buffer();
    write_ordering_content(settings_->instance_id, domain.text, element_ids, content);
    produce(ids_.ordering_id(domain), content.view(), array);
}

void Flattener::flatten_document(const JsonValue& object, const DocumentPath& path, std::string_view id,
                                 std::uint32_t array) {
    TextBuffer& out = free_buffer();
    ++open_documents_;
    if (has_marker(object, vocabulary::no_flatten_key)) {
        write_verbatim(object, id, IdMember::leave_out, out);
    } else {
        write_members(object, path, id, IdMember::leave_out, out);
    }
    --open_documents_;
    produce(id, out.view(), array);
}

void Flattener::write_value(const JsonValue& value, const DocumentPath& path, TextBuffer& out) {
    if (value.is_string()) {
        write_marked_string(value, out);
    } else if (value.is_object()) {
        write_inline_object(value, path, out);
    } else if (!value.is_array()) {
        write_json(value, out);
    } else if (is_array_of_objects(value)) {
        write_array_reference(value, path, out);
    } else {
        const DocumentPath inside{&path, Step::plain_array, {}};
        std::string_view separator = "[";
        for (const JsonValue& element : value.elements()) {
            out.append(separator);
            write_value(element, inside, out);
            separator = ", ";
        }
        out.push_back(']');
    }
}

void Flattener::write_inline_object(const JsonValue& object, const DocumentPath& path, TextBuffer& out) {
    if (has_marker(object, vocabulary::no_flatten_key)) {
        write_verbatim(object, ids_.object_id(object, path), IdMember::set, out);
    } else if (splits(object)) {
        write_members(object, path, ids_.object_id(object, path), IdMember::set, out);
    } else {
        write_members(object, path, {}, IdMember::keep, out);
    }
}

void Flattener::write_members(const JsonValue& object, const DocumentPath& path, std::string_view id,
                              IdMember id_member, TextBuffer& out) {
    const DocumentPath inside{&path, path.empty() ? Step::root : Step::object, {}, &object, id};
    const bool split = splits(object);
    std::string_view separator;
    bool id_is_due = id_member == IdMember::set;
    const auto write_id = [&] {
        out.append(separator);
        out.append(R"("_id": )");
        write_json_string(id, out);
        separator = ", ";
        id_is_due = false;
    };

    out.push_back('{');
    for (const auto& [key, value] : object.members()) {
        if (id_is_due && key >= vocabulary::id_key) write_id();
        const bool is_id = key == vocabulary::id_key;
        if (is_id && id_member != IdMember::keep) continue;
        write_json_key(key, separator, out);
        separator = ", ";
        const DocumentPath member{&inside, Step::member, key};
        if (is_id) {
            write_json(value, out);
        } else if (split && value.is_object() && !has_marker(value, vocabulary::no_flatten_key)) {
            write_object_reference(value, member, out);
        } else {
            write_value(value, member, out);
        }
    }
    if (id_is_due) write_id();
    out.push_back('}');
}

void Flattener::write_verbatim(const JsonValue& object, std::string_view id, IdMember id_member, TextBuffer& out) {
    std::vector<JsonMember> members;
    members.reserve(object.members().size() + 1);
    for (const JsonMember& member : object.members()) {
        if (member.key != vocabulary::id_key) members.push_back(member);
    }
    if (id_member == IdMember::set) {
        const auto after = [](const JsonMember& member) { return member.key > vocabulary::id_key; };
        members.insert(std::ranges::find_if(members, after), {vocabulary::id_key, JsonValue::string(id)});
    }
    write_json(JsonValue::object(members), out);
}

// Two objects would become one document. The root counts too: it holds everything else, so a document under its id
// would take the place of all data.
void Flattener::refuse_duplicate(std::string_view member_path) {
    raise<FlattenerException>(source::flattener, "operator ()", "duplicate_objects_domain_key", member_path);
}

void Flattener::write_object_reference(const JsonValue& object, const DocumentPath& path, TextBuffer& out) {
    const std::string_view id = ids_.object_id(object, path);
    // The id is taken before the object is entered, so that another object of that id inside it is met as well.
    if (!object_ids_.add(id).is_new || id == root_id_ || id == clashing_id_) {
        refuse_duplicate(ids_.path_text(path));
    }
    write_reference(vocabulary::object_reference_marker, id, out);
    flatten_document(object, path, id, no_array);
}

void Flattener::write_array_reference(const JsonValue& array, const DocumentPath& path, TextBuffer& out) {
    const ArrayDomain array_domain = ids_.array_domain(path);
    const std::string_view domain = array_domain.text;
    const auto [number, is_new] = domains_.add(domain);
    // Two arrays of one domain would share their elements; only where both are empty is nothing lost.
    if (!is_new && !(array.elements().empty() && arrays_[number].is_empty)) {
        raise<FlattenerException>(source::flattener, "flatten", "duplicate_array_domain_key", ids_.path_text(path));
    }
    write_reference(vocabulary::array_reference_marker, domain, out);
    if (!is_new) return;
    arrays_.push_back({domain, array.elements().empty()});
    if (array.elements().empty()) return;

    const DocumentPath inside{&path, Step::array, domain};
    const bool indexed = settings_->indexed_array_paths.contains(domain);
    const std::size_t first = element_ids_.size();
    for (const JsonValue& element : array.elements()) {
        std::array<char, longest_number> digits;
        const auto position = static_cast<std::int64_t>(element_ids_.size() - first);
        const char* const end = indexed ? write_integer(position, digits.data()) : digits.data();
        const std::string_view written(digits.data(), static_cast<std::size_t>(end - digits.data()));
        const DocumentPath indexed_path{&inside, Step::position, written};
        const DocumentPath& element_path = indexed ? indexed_path : inside;
        const std::string_view id = ids_.object_id(element, element_path);
        // An element inside one of its own id would be the same document as that. There are no more of them than
        // levels.
        if (id == root_id_ || std::ranges::find(entered_elements_, id) != entered_elements_.end()) {
            refuse_duplicate({});
        }
        element_ids_.push_back(id);
        entered_elements_.push_back(id);
        flatten_document(element, element_path, id, number);
        entered_elements_.pop_back();
    }
    produce_order(array_domain, std::span(element_ids_).subspan(first), number);
    element_ids_.resize(first);
}

}  // namespace libzentadbpp
