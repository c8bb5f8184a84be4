#include "generate.h"

#include "c_api/samples.h"
#include "c_api/zenta.h"
#include "libzentadbpp/object_compression.h"

namespace fuzzing {

namespace {

std::string quoted(const std::string& text) { return '"' + text + '"'; }

// Ids as they are written in JSON, between the quotes.
constexpr std::string_view some_ids[] = {"root", "a", "b",       "e1",  "e2",       "ord-1",   "ord-2",
                                         "gone", "",  "\\u0000", "a,b", "\xff\xc3", "\\ud800", "resolved"};
constexpr std::string_view hashes[] = {"A", "B", "C", "D", "x1", "x22", "empty", "deleted", "resolved", "", "A_B"};
constexpr std::string_view domains[] = {"D", "E", "", "x1", "\\u0000"};
constexpr std::size_t depths[] = {0, 2, 3, 9, 198, 199, 200, 201, 254, 255, 256, 257, 1000, 20000};

std::string nested(std::size_t levels, const std::string& inside) {
    std::string all(levels, '[');
    all += inside;
    return all.append(levels, ']');
}

}  // namespace

std::string compressed_object(const std::string& stream, const std::string& claimed_size) {
    libzentadbpp::TextBuffer base64;
    libzentadbpp::base64_encode(stream, base64);
    return R"({"compressed": true, "data": ")" + std::string(base64.view()) + R"(", "uncompressed_size": )" +
           claimed_size + "}";
}

std::string Generator::string() {
    switch (choices_.below(10)) {
        case 0:
            return quoted(choices_.pick(some_ids));
        case 1:
            return quoted("O" + choices_.pick(some_ids));
        case 2:
            return quoted("A" + choices_.pick(domains));
        case 3:
            return quoted(choices_.pick({"\\u0000", "\\u2028", "\xe2\x80\xa9", "\xe2\x80", "\\ud83d\\ude00", "\\ud83d",
                                         "\\u00", "\\x", "\x7f", "\\/", "\x01", "\xc0\x80"}));
        case 4:
            return quoted(choices_.bytes(choices_.below(20)));
        default:
            return quoted("!" + choices_.pick({"", "t", "text", "#", "O", "A"}));
    }
}

std::string Generator::number() {
    return choices_.pick(
        {"0",          "1",          "2",          "-1",         "1.5",  "-0.0",  "999999999",
         "1234567890", "4294967295", "4294967296", "2147483648", "1e19", "1e999", "-1e999",
         "5e-324",     "0.1",        "01",         "1.",         "-",    "1e",    "18446744073709551616"});
}

std::string Generator::key() {
    if (choices_.one_in(12)) return string();
    return quoted(choices_.pick({"a", "b", "list", "_id", "#df", "#nf", "_rev", "_revisions", "_deleted", "d", "i", "s",
                                 "k", "v", "\\u0061", "A", ""}));
}

std::string Generator::list(std::size_t most, std::string (Generator::*element)(std::size_t), std::size_t levels) {
    std::string all;
    for (std::size_t left = choices_.below(most + 1); left > 0; --left) {
        if (!all.empty()) all += ", ";
        all += (this->*element)(levels);
    }
    return "[" + all + "]";
}

std::string Generator::json(std::size_t levels) {
    switch (choices_.below(levels > 0 ? 9 : 5)) {
        case 0:
            return "{}";
        case 1:
            return choices_.pick({"null", "true", "false", "[]", "[{}]", "nul", "", "/**/1"});
        case 2:
            return number();
        case 3:
            return choices_.one_in(8) ? nested(depths[choices_.below(std::size(depths))], number()) : "1";
        case 4:
            return string();
        case 5:
            return list(4, &Generator::json, levels - 1);
        default: {
            std::string members;
            for (std::size_t left = choices_.below(5); left > 0; --left) {
                members += (members.empty()       ? ""
                            : choices_.one_in(20) ? ",, "
                                                  : ", ") +
                           key() + ": " + json(levels - 1);
            }
            return "{" + members + "}";
        }
    }
}

std::string Generator::host_object(std::size_t levels) {
    std::string members;
    const auto add = [&](const std::string& name, const std::string& value) {
        members += (members.empty() ? "" : ", ") + name + ": " + value;
    };
    if (choices_.below(4) > 1) add("\"_id\"", quoted(choices_.pick(some_ids)));
    if (choices_.one_in(5)) add("\"#df\"", "true");
    if (choices_.one_in(9)) add("\"#nf\"", "1");
    for (std::size_t left = choices_.below(5); left > 0; --left) {
        const std::size_t kind = choices_.below(levels > 0 ? 6 : 3);
        if (kind == 3) add(key(), host_object(levels - 1));
        if (kind > 3) add(quoted(choices_.pick({"list", "more", "a"})), list(5, &Generator::host_object, levels - 1));
        if (kind < 3) add(key(), json(kind));
    }
    return "{" + members + "}";
}

std::string Generator::content(std::size_t levels) {
    if (choices_.one_in(3)) {
        std::string elements;
        for (std::size_t left = choices_.below(6); left > 0; --left) {
            elements +=
                (elements.empty() ? "" : ", ") + (choices_.one_in(15) ? json(1) : quoted(choices_.pick(some_ids)));
        }
        return R"({"d": )" + quoted(choices_.pick(domains)) + R"(, "i": )" +
               quoted(choices_.pick({"default", "left", "right", "\\u0000", ""})) + R"(, "s": [)" + elements + "]}";
    }
    if (choices_.one_in(20)) return json(levels);
    std::string members;
    for (std::size_t left = choices_.below(4); left > 0; --left) {
        members += (members.empty() ? "" : ", ") + key() + ": ";
        members += choices_.one_in(4) ? json(levels - 1) : string();
    }
    return "{" + members + "}";
}

std::string Generator::entry() {
    if (choices_.one_in(40)) return json(1);
    return quoted(choices_.pick(hashes) + "_" +
                  choices_.pick({"A", "B", "C", "D", "first", "empty", "resolve", "deleted", "b-c", ""}));
}

std::string Generator::history(std::size_t levels) {
    std::string all;
    const auto add = [&](const std::string& next) { all += (all.empty() ? "" : ", ") + next; };
    if (choices_.below(30) != 1) add(choices_.one_in(9) ? entry() : R"("A_first")");
    std::size_t times = choices_.below(4);
    if (choices_.one_in(30)) times = choices_.below(3000);
    for (const std::string link = entry(); times > 0; --times) add(choices_.one_in(2) ? link : entry());
    if (levels > 0 && choices_.one_in(3)) {
        std::string branches;
        for (std::size_t left = choices_.below(5); left > 0; --left) {
            branches += (branches.empty() ? "" : ", ") + (choices_.one_in(2) ? entry() : history(levels - 1));
        }
        add("[" + branches + "]");
    }
    if (choices_.one_in(40)) add(json(2));
    return "[" + all + "]";
}

std::string Generator::sync_json() {
    std::string documents = R"("root": )" + history(2);
    for (std::size_t left = choices_.below(6); left > 0; --left) {
        documents += ", " + quoted(choices_.pick(some_ids)) + ": " + (choices_.one_in(40) ? json() : history(3));
    }
    std::string contents;
    for (std::size_t left = choices_.below(8); left > 0; --left) {
        contents += (contents.empty() ? "" : ", ") + quoted(choices_.pick(hashes)) + ": " + content();
    }
    std::string all = R"({"d": {)" + documents + R"(}, "o": {)" + contents + R"(}, "r": )" +
                      quoted(choices_.one_in(8) ? choices_.pick(some_ids) : "root") + "}";
    if (choices_.one_in(12))
        all.replace(choices_.below(all.size()), choices_.below(8), choices_.bytes(choices_.below(8)));
    return all;
}

std::string Generator::any_set() {
    switch (choices_.below(10)) {
        case 0:
            return c_api::samples()[choices_.below(c_api::samples().size())].sync_json;
        case 1:
            return c_api::compressed(c_api::samples()[choices_.below(c_api::samples().size())].sync_json);
        case 2: {
            const std::string given = sync_json();
            const c_api::Answer answer = c_api::taken(sync_json_compress(given.c_str()));
            return answer.value.value_or(given);
        }
        case 3:
            return json();
        case 4:
            return choices_.bytes(choices_.below(300));
        case 5: {
            const std::string data = host_object();
            const c_api::Answer made =
                c_api::taken(update_sync_json(data.c_str(), c_api::rich_sample().c_str(), configuration().c_str()));
            return made.value.value_or("{}");
        }
        case 6: {
            std::string damaged = c_api::samples()[choices_.below(c_api::samples().size())].sync_json;
            for (std::size_t left = choices_.below(3) + 1; left > 0 && !damaged.empty(); --left) {
                const std::size_t at = choices_.below(damaged.size());
                const std::string piece = choices_.one_in(3) ? damaged.substr(choices_.below(damaged.size()), 60)
                                                             : choices_.bytes(choices_.below(3));
                damaged.replace(at, choices_.below(20), piece);
            }
            return damaged;
        }
        default:
            return sync_json();
    }
}

std::string Generator::documents() {
    if (choices_.one_in(12)) return json();
    std::string all;
    for (std::size_t left = choices_.below(7); left > 0; --left) {
        std::string document = content();
        if (document.starts_with('{')) {
            document.insert(1, R"("_id": )" + quoted(choices_.pick(some_ids)) + (document == "{}" ? "" : ", "));
        }
        all += (all.empty() ? "" : ", ") + document;
    }
    return "[" + all + "]";
}

std::string Generator::configuration() {
    if (choices_.one_in(25)) return json();
    std::string members = R"("instance_id": )" + quoted(choices_.pick({"default", "left", "right", "", "\\u0000\xff"}));
    const auto add = [&](const char* key, const std::string& value) {
        members += ", " + quoted(key) + ": " + (choices_.one_in(20) ? json(1) : value);
    };
    for (const char* flag : {"flatten_objects", "discard_id", "force_fast_hash_only", "include_full_data_hash",
                             "preserve_old_ordering", "compressed"}) {
        if (choices_.one_in(4)) add(flag, "true");
    }
    if (choices_.one_in(3)) {
        add("id_generation_rules",
            quoted(choices_.pick({"k", "k,v;k", "a.b,list", ";,.;", "k.", "_id", "#df", "\\u0000", "a;b"})));
    }
    if (choices_.one_in(4)) {
        // the last one is that of "list" in the root
        add("indexed_array_paths",
            quoted(
                choices_.pick({"1", ",,", "x1", "9d077b2af45e47cdb69d5978597434c64ba0adb224fba69f836cfe548342b193"})));
    }
    return "{" + members + "}";
}

std::string Generator::bulk_get() {
    if (choices_.one_in(15)) return json();
    const auto document = [&] {
        std::string hashes_given;
        std::size_t count = choices_.below(4) + 1;
        const std::string start = choices_.below(6) > 1 ? std::to_string(count) : number();
        for (; count > 0; --count) {
            const std::string hash = choices_.pick(hashes);
            hashes_given +=
                (hashes_given.empty() ? "" : ", ") +
                (choices_.one_in(30) ? json(1)
                                     : quoted(choices_.one_in(4) ? hash + "_" + choices_.pick(hashes) : hash));
        }
        std::string text = R"({"_id": )" + quoted(choices_.pick(some_ids)) + R"(, "_revisions": {"ids": [)" +
                           hashes_given + R"(], "start": )" + start + "}";
        if (choices_.one_in(3)) text += R"(, "_rev": )" + quoted(revision());
        if (choices_.one_in(8)) text += R"(, "_deleted": true)";
        for (std::size_t left = choices_.below(3); left > 0; --left) text += ", " + key() + ": " + string();
        return text + "}";
    };
    std::string results;
    for (std::size_t left = choices_.below(7); left > 0; --left) {
        results += (results.empty() ? "" : ", ") + std::string(R"({"docs": [{"ok": )") +
                   (choices_.one_in(30) ? json() : document()) + R"(}, {"error": 1}]})";
    }
    return R"({"results": [)" + results + "]}";
}

std::string Generator::list_operations(bool of_histories) {
    std::string all;
    for (std::size_t left = choices_.below(6); left > 0; --left) {
        const std::string value = choices_.one_in(12) ? json() : of_histories ? history(2) : content();
        all += (all.empty() ? "" : ", ") + std::string("{") + (choices_.one_in(20) ? "" : R"("op": )") +
               choices_.pick({R"("add")", R"("remove")", R"("replace")", "5", R"("")"}) + R"(, "key": )" +
               quoted(of_histories ? choices_.pick(some_ids) : choices_.pick(hashes)) +
               (choices_.one_in(9) ? "" : R"(, "value": )" + value) + "}";
    }
    return "[" + all + "]";
}

std::string Generator::patch() {
    if (choices_.one_in(15)) return json();
    return R"({"d": )" + list_operations(true) + R"(, "o": )" +
           (choices_.one_in(20) ? json() : list_operations(false)) + "}";
}

std::string Generator::id() {
    if (choices_.one_in(12)) return choices_.bytes(choices_.below(8));
    return choices_.pick(some_ids);
}

std::string Generator::ids() {
    if (choices_.one_in(4)) return id();
    std::string all;
    for (std::size_t left = choices_.below(5); left > 0; --left) {
        all += (all.empty() ? "" : ", ") + (choices_.one_in(9) ? json(1) : quoted(choices_.pick(some_ids)));
    }
    return "[" + all + "]";
}

std::string Generator::revision() {
    if (choices_.one_in(12)) return choices_.bytes(choices_.below(16));
    return choices_.pick({"1", "2", "3", "4", "02", "0", "-1", "4294967297", "2147483648", "99999999999999999999", " 2",
                          "2x", ""}) +
           (choices_.one_in(12) ? "" : "-") + choices_.pick(hashes) + (choices_.one_in(12) ? "" : "_") +
           choices_.pick({"first", "A", "B", "C", "D", "empty", "resolve", ""});
}

}  // namespace fuzzing
