#include "couchdb/database.h"

#include <charconv>
#include <cstdint>
#include <iterator>
#include <utility>

#include "cli/failure.h"
#include "cli/terminal.h"
#include "store/files.h"
#include "store/json_text.h"

namespace zentadb {

namespace {

// Deeper than a content may be with all that is around it.
constexpr std::size_t deepest_answer = 400;

bool is_too_deep(std::string_view text) { return is_nested_deeper(text, deepest_answer); }

constexpr long too_large = 413;  // the status for a request that the server would accept in parts

std::pair<Database::Json, Database::Json> halves(const Database::Json& all) {
    const auto middle = std::next(all.begin(), static_cast<Database::Json::difference_type>(all.size() / 2));
    return {Database::Json(all.begin(), middle), Database::Json(middle, all.end())};
}

Database::Json joined(Database::Json list, const Database::Json& more) {
    list.insert(list.end(), more.begin(), more.end());
    return list;
}

Database::Json list_in(const Database::Json& answer, const char* member) {
    const Database::Json& list = answer.at(member);
    expect_shape(list.is_array(), std::string("\"") + member + "\" is not an array");
    return list;
}

}  // namespace

void refuse_shape(const std::string& what) {
    throw Failure(ExitCode::network, "not a response of a CouchDB server: " + what);
}

Database::Json Database::parsed(const Answer& answer) const {
    Json json = is_too_deep(answer.body) ? Json(Json::value_t::discarded) : Json::parse(answer.body, nullptr, false);
    if (!json.is_discarded()) return json;
    throw Failure(ExitCode::network, url() + ": the response is not JSON, or is nested too deeply",
                  "Is this the URL of a database on a CouchDB server?");
}

void Database::refuse(const Answer& answer) const {
    const Json json = is_too_deep(answer.body) ? Json() : Json::parse(answer.body, nullptr, false);
    std::string what = url() + ": the server refuses with status " + std::to_string(answer.status);
    if (json.is_object()) {
        for (const char* member : {"error", "reason"}) {
            if (const std::string* text = string_member(json, member)) what += ": " + printable(*text);
        }
    }
    std::string advice;
    if (answer.status == 401 || answer.status == 403) {
        advice = "Give credentials in the URL, in ZENTADB_USER and ZENTADB_PASSWORD, or in ZENTADB_TOKEN.";
    } else if (answer.status == 404) {
        advice = "No such database. To create it, push with --create.";
    } else if (answer.status >= 300 && answer.status < 400) {
        advice = "The server redirects to another URL.";
    }
    throw Failure(ExitCode::refused, what, advice);
}

Database::Json Database::expect(const Answer& answer) const {
    if (!answer.is_success()) refuse(answer);
    return parsed(answer);
}

void Database::open(bool create) {
    const Answer answer = client_.send("GET", "");
    if (answer.is_success()) {
        const Json json = parsed(answer);
        if (json.is_object() && json.contains("db_name")) {
            update_seq_ = json.value("update_seq", Json());
            return;
        }
        throw Failure(ExitCode::refused, url() + " is not a database of a CouchDB server",
                      "Give a URL that ends with the name of the database.");
    }
    if (answer.status != 404 || !create) refuse(answer);
    const Answer made = client_.send("PUT", "");
    // 412: another process was faster, or a first try got through after all.
    if (!made.is_success() && made.status != 412) refuse(made);
}

bool Database::has_reached(const Json& since) const {
    // A number, or one and what only the server understands: "12-g1AAAA".
    const auto number = [](const Json& seq) {
        if (seq.is_number_unsigned()) return seq.get<std::uint64_t>();
        std::uint64_t value = 0;
        if (seq.is_string()) {
            const auto& text = seq.get_ref<const std::string&>();
            std::from_chars(text.data(), text.data() + text.size(), value);
        }
        return value;
    };
    return update_seq_.is_null() || number(since) <= number(update_seq_);
}

std::optional<Database::Json> Database::local(const std::string& name) {
    const Answer answer = client_.send("GET", "/_local/" + url_encoded(name));
    if (answer.status == 404) return std::nullopt;
    Json json = expect(answer);
    expect_shape(json.is_object(), "a document is not an object");
    return json;
}

bool Database::put_local(const std::string& name, const Json& document) {
    return client_.send("PUT", "/_local/" + url_encoded(name), document.dump()).is_success();
}

std::size_t Database::revs_limit() {
    const Answer answer = client_.send("GET", "/_revs_limit");
    if (!answer.is_success()) return 0;
    const Json json = parsed(answer);
    return json.is_number_unsigned() ? json.get<std::size_t>() : 0;
}

Database::Json Database::revs_diff(const Json& revisions) {
    const Answer answer = client_.send("POST", "/_revs_diff", revisions.dump());
    if (answer.status != too_large || revisions.size() < 2) {
        Json missing = expect(answer);
        expect_shape(missing.is_object(), "_revs_diff does not return an object");
        return missing;
    }
    const auto [first, second] = halves(revisions);
    Json all = revs_diff(first);
    all.update(revs_diff(second));
    return all;
}

Database::Json Database::leading_revs(const Json& ids) {
    const Answer answer = client_.send("POST", "/_all_docs", Json{{"keys", ids}}.dump());
    if (answer.status == too_large && ids.size() > 1) {
        const auto [first, second] = halves(ids);
        return joined(leading_revs(first), leading_revs(second));
    }
    const Json rows = list_in(expect(answer), "rows");
    Json present = Json::array();
    for (const Json& row : rows) {
        const auto value = row.find("value");
        if (value == row.end() || !value->is_object()) continue;
        present.push_back({{"id", row.at("id")}, {"rev", value->at("rev")}});
    }
    return present;
}

std::optional<Database::Json> Database::bulk_docs(const std::string& body) {
    const Answer answer = client_.send("POST", "/_bulk_docs", body);
    if (answer.status == too_large) return std::nullopt;
    Json problems = expect(answer);
    expect_shape(problems.is_array(), "_bulk_docs does not return an array");
    return problems;
}

Database::Json Database::changes(const Json& since, std::size_t limit) {
    const std::string from = url_encoded(since.is_string() ? since.get<std::string>() : since.dump());
    Json changes =
        expect(client_.send("GET", "/_changes?style=all_docs&limit=" + std::to_string(limit) + "&since=" + from));
    const std::size_t count = list_in(changes, "results").size();
    expect_shape(count < limit || changes.at("last_seq") != since, "_changes returns the same changes again");
    return changes;
}

Database::Json Database::bulk_get(const Json& wanted) {
    const Answer answer = client_.send("POST", "/_bulk_get?revs=true", Json{{"docs", wanted}}.dump());
    if (answer.status != too_large || wanted.size() < 2) return list_in(expect(answer), "results");
    const auto [first, second] = halves(wanted);
    return joined(bulk_get(first), bulk_get(second));
}

}  // namespace zentadb
