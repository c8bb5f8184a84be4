// A host program. A laptop and a phone keep the world's list of subdivisions (ISO 3166-2). Both edit it offline, then
// merge, and in the end both have the same list with the edits of both.
//
//   demo [path of iso_3166-2.json]
//
// It uses only the public header, and checks every result against a list that it edits by hand.

#include <zentadbpp.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

void check(bool holds, const std::string& what) {
    if (!holds) throw std::runtime_error(what);
}

// ---------------------------------------------------------------------------------------------------------------------
// The library, with values instead of records and exceptions instead of error texts.

std::string value_of(sync_json_result record) {
    const std::unique_ptr<sync_json_result, decltype(&free_sync_json_result)> owner(&record, free_sync_json_result);
    if (record.value == nullptr) throw std::runtime_error(record.error != nullptr ? record.error : "out of memory");
    return record.value;
}

// The entries have a natural key, "code", which becomes their id; the data that is read has no "_id" beside it.
constexpr const char* config = R"({"instance_id": "demo", "id_generation_rules": "code", "discard_id": true})";

// A device and its store.
struct Device {
    std::string name;
    std::string sync_json = "{}";

    void save(const std::string& data) {
        sync_json = value_of(update_sync_json(data.c_str(), sync_json.c_str(), config));
    }
    [[nodiscard]] std::string read() const { return value_of(read_sync_json(sync_json.c_str(), config)); }
    void learn_from(const std::string& other) {
        sync_json = value_of(replicate_sync_json(other.c_str(), sync_json.c_str(), config));
    }
    [[nodiscard]] std::string unresolved() const { return value_of(sync_json_unresolved(sync_json.c_str())); }
    [[nodiscard]] std::string winning(const std::string& id) const {
        return value_of(sync_json_winning(sync_json.c_str(), id.c_str()));
    }
    [[nodiscard]] std::string conflicting(const std::string& id) const {
        return value_of(sync_json_conflicting(sync_json.c_str(), id.c_str()));
    }
    [[nodiscard]] std::string content(const std::string& id, const std::string& revision) const {
        return value_of(sync_json_data(sync_json.c_str(), id.c_str(), revision.c_str(), config));
    }
    void close_branch(const std::string& id, const std::string& revision) {
        sync_json = value_of(sync_json_resolve(sync_json.c_str(), id.c_str(), revision.c_str()));
    }
};

// ---------------------------------------------------------------------------------------------------------------------
// The list as this program edits it: one text per entry, such as {"code": "LI-11", "name": "Vaduz", "type":
// "Commune"}.

class List {
   public:
    // From JSON on one line.
    explicit List(std::string_view json) {
        check(json.starts_with(head) && json.ends_with(tail), "the data is not the list of subdivisions");
        json.remove_prefix(head.size());
        json.remove_suffix(tail.size());
        for (std::size_t end = 0; end != std::string_view::npos; json.remove_prefix(std::min(end + 3, json.size()))) {
            end = json.find("}, {");
            entries_.emplace_back(end == std::string_view::npos ? json : json.substr(0, end + 1));
            check(entries_.back().starts_with(R"({"code": ")"), "not an entry of the list: " + entries_.back());
        }
    }

    [[nodiscard]] std::size_t size() const { return entries_.size(); }
    [[nodiscard]] const std::vector<std::string>& entries() const { return entries_; }
    [[nodiscard]] std::string json() const {
        std::string text(head);
        for (const std::string& entry : entries_) text.append(&entry == entries_.data() ? "" : ", ").append(entry);
        return text.append(tail);
    }

    [[nodiscard]] std::string entry(std::string_view code) const { return entries_[position(code)]; }
    void set(std::string_view code, std::string entry) { entries_[position(code)] = std::move(entry); }
    void edit(std::string_view code, std::string_view before, std::string_view after) {
        std::string& entry = entries_[position(code)];
        const std::size_t at = entry.find(before);
        check(at != std::string::npos && entry.find(before, at + 1) == std::string::npos,
              "to be edited once: " + std::string(before) + " in " + entry);
        entry.replace(at, before.size(), after);
    }
    void add_after(std::string_view code, std::string entry) {
        entries_.insert(entries_.begin() + static_cast<std::ptrdiff_t>(position(code)) + 1, std::move(entry));
    }
    void remove(std::string_view code) {
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(position(code)));
    }
    void move_before(std::string_view code, std::string_view next) {
        std::string moved = entry(code);
        remove(code);
        entries_.insert(entries_.begin() + static_cast<std::ptrdiff_t>(position(next)), std::move(moved));
    }

   private:
    static constexpr std::string_view head = R"({"3166-2": [)";
    static constexpr std::string_view tail = "]}";

    [[nodiscard]] std::size_t position(std::string_view code) const {
        const std::string start = R"({"code": ")" + std::string(code) + '"';
        const auto at =
            std::ranges::find_if(entries_, [&](const std::string& text) { return text.starts_with(start); });
        check(at != entries_.end(), "no entry " + std::string(code));
        return static_cast<std::size_t>(at - entries_.begin());
    }

    std::vector<std::string> entries_;
};

// The file has a member on each line, in the order of the keys; this is the same JSON on one line.
std::string on_one_line(const std::string& file) {
    std::string text;
    std::istringstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        text.append(line, std::min(line.find_first_not_of(' '), line.size()));
        if (line.ends_with(',')) text += ' ';
    }
    return text;
}

std::string contents_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    check(file.is_open(), "cannot open " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// ---------------------------------------------------------------------------------------------------------------------
// The printed report.

class Timer {
   public:
    [[nodiscard]] double milliseconds() const {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_).count();
    }

   private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

void heading(const std::string& text) { std::cout << '\n' << text << '\n'; }

void row(const std::string& what, std::size_t bytes, double milliseconds) {
    std::cout << "  " << std::left << std::setw(41) << what << std::right << std::fixed << std::setprecision(1)
              << std::setw(9) << static_cast<double>(bytes) / 1024 << " KiB" << std::setw(9) << milliseconds << " ms\n";
}

// Runs a step that changes what the device stores.
template <class Step>
void timed(Device& device, const std::string& what, const Step& step) {
    const Timer timer;
    step();
    row(device.name + ' ' + what, device.sync_json.size(), timer.milliseconds());
}

List read_back(const Device& device, const List& expected) {
    const Timer timer;
    const std::string text = device.read();
    row(device.name + " reads the list back", text.size(), timer.milliseconds());
    List list(text);
    const auto [read, wanted] = std::ranges::mismatch(list.entries(), expected.entries());
    check(read == list.entries().end() && wanted == expected.entries().end(),
          "the " + device.name + " reads " + (read == list.entries().end() ? "the end of the list" : *read) +
              " where " + (wanted == expected.entries().end() ? "the end of the list" : *wanted) + " was expected");
    check(text == expected.json(), "the text that the " + device.name + " reads differs from the expected one");
    return list;
}

void check_alike(const Device& one, const Device& other) {
    check(one.sync_json == other.sync_json, "the two copies differ");
    std::cout << "  Both copies are now the same, byte for byte.\n";
}

// ---------------------------------------------------------------------------------------------------------------------
// The edits.

void change_names_on_laptop(List& list) {
    list.edit("SM-07", "Città di San Marino", "City of San Marino");
    list.edit("AD-06", "Sant Julià de Lòria", "Sant Julià");
    list.add_after("AD-03", R"({"code": "AD-90", "name": "Els Cortals", "type": "Quarter"})");
}
void change_order_on_laptop(List& list) { list.move_before("LI-11", "LI-01"); }
void change_on_phone(List& list) {
    list.edit("LI-07", "Commune", "Municipality");
    list.edit("AD-06", "Sant Julià de Lòria", "Sant Julià");
    list.add_after("MC-GA", R"({"code": "MC-HE", "name": "Hermitage", "type": "Quarter"})");
    list.remove("MC-MA");
}

struct Disagreement {
    std::string id;
    std::string before;
    std::string on_laptop;
    std::string on_phone;
    bool keep_winner;
};
const Disagreement disagreements[] = {
    {"AD-07", "Andorra la Vella", "Andorra la Vella (capital)", "Andorra-la-Vella", true},
    {"MC-MC", "Monte-Carlo", "Monte Carlo", "Mount Charles", false},
};

// Shows and resolves one conflict; returns the content that stays.
std::string resolve(Device& device, const Disagreement& disagreement, const std::string& on_laptop,
                    const std::string& on_phone) {
    const std::string& id = disagreement.id;
    const std::string winner = device.winning(id);
    const std::string loser = device.conflicting(id);
    const std::string winning_content = device.content(id, winner);
    const std::string losing_content = device.content(id, loser);
    check((winning_content == on_laptop && losing_content == on_phone) ||
              (winning_content == on_phone && losing_content == on_laptop),
          "the conflict about " + id + " does not hold the content of the laptop and that of the phone");

    const auto brief = [](const std::string& revision) { return revision.substr(0, 10) + "..."; };
    std::cout << "  wins   " << brief(winner) << "  " << winning_content << "\n  loses  " << brief(loser) << "  "
              << losing_content << '\n';
    timed(device, disagreement.keep_winner ? "keeps the winner" : "prefers the other",
          [&] { device.close_branch(id, disagreement.keep_winner ? loser : winner); });
    return disagreement.keep_winner ? winning_content : losing_content;
}

void run(const std::string& path) {
    const std::string file = contents_of(path);
    const List original(on_one_line(file));
    Device laptop{"laptop"};
    Device phone{"phone"};
    std::cout << "zentadbpp " << sync_json_lib_version() << "\n"
              << path << ", " << original.size() << " entries, " << file.size() / 1024 << " KiB\n";

    heading("1. The laptop takes the list as its data, and the phone gets a copy");
    timed(laptop, "imports the file", [&] { laptop.save(file); });
    read_back(laptop, original);
    timed(phone, "replicates the laptop", [&] { phone.learn_from(laptop.sync_json); });
    check_alike(laptop, phone);

    heading("2. Both edit their list offline");
    std::cout << "  both    edit AD-06 alike, and AD-07 and MC-MC each differently\n"
                 "  laptop  renames SM-07, adds AD-90 after AD-03, then moves LI-11 before LI-01\n"
                 "  phone   edits LI-07, adds MC-HE after MC-GA, removes MC-MA\n";
    List laptop_list = original;
    List phone_list = original;
    for (const Disagreement& each : disagreements) {
        laptop_list.edit(each.id, each.before, each.on_laptop);
        phone_list.edit(each.id, each.before, each.on_phone);
    }
    change_names_on_laptop(laptop_list);
    timed(laptop, "saves its edits and addition", [&] { laptop.save(laptop_list.json()); });
    change_order_on_laptop(laptop_list);
    timed(laptop, "saves its reordering", [&] { laptop.save(laptop_list.json()); });
    change_on_phone(phone_list);
    timed(phone, "saves its changes", [&] { phone.save(phone_list.json()); });
    check(laptop.sync_json != phone.sync_json, "the changes do not show");

    heading("3. They merge");
    const std::string sent_by_laptop = laptop.sync_json;
    timed(laptop, "replicates the phone", [&] { laptop.learn_from(phone.sync_json); });
    timed(phone, "replicates the laptop", [&] { phone.learn_from(sent_by_laptop); });
    check_alike(laptop, phone);
    const std::string merged = phone.sync_json;
    timed(phone, "replicates the same again", [&] { phone.learn_from(sent_by_laptop); });
    check(phone.sync_json == merged, "replicating twice is not the same as once");

    // By hand: the edits of both, and for each disagreement the winner.
    List expected = original;
    change_names_on_laptop(expected);
    change_order_on_laptop(expected);
    expected.set("AD-06", original.entry("AD-06"));  // both made this edit, so it shows once
    change_on_phone(expected);
    for (const Disagreement& each : disagreements) {
        expected.set(each.id, laptop.content(each.id, laptop.winning(each.id)));
    }
    for (Device* device : {&laptop, &phone}) {
        const List list = read_back(*device, expected);
        timed(*device, "saves what it read", [&] { device->save(list.json()); });
    }
    check_alike(laptop, phone);

    heading("4. They disagree about two entries, and the laptop resolves that");
    check(laptop.unresolved() == "AD-07,MC-MC", "conflicts: " + laptop.unresolved());
    for (const Disagreement& each : disagreements) {
        expected.set(each.id, resolve(laptop, each, laptop_list.entry(each.id), phone_list.entry(each.id)));
    }
    timed(phone, "replicates the laptop", [&] { phone.learn_from(laptop.sync_json); });
    check_alike(laptop, phone);
    for (const Device* device : {&laptop, &phone}) {
        check(device->unresolved().empty(), "still in conflict: " + device->unresolved());
        read_back(*device, expected);
    }
    std::cout << "  No conflict is left; both read what the list was expected to be.\n";

    heading("5. What compressing the whole saves");
    const Timer compress_timer;
    const std::string compressed = value_of(sync_json_compress(phone.sync_json.c_str()));
    row("phone compresses", compressed.size(), compress_timer.milliseconds());
    const Timer uncompress_timer;
    check(value_of(sync_json_uncompress(compressed.c_str())) == phone.sync_json, "uncompressing gives something else");
    row("phone uncompresses", phone.sync_json.size(), uncompress_timer.milliseconds());
    check(Device{"phone", compressed}.read() == expected.json(), "the compressed copy reads differently");
    std::cout << "  " << std::setprecision(0)
              << 100 - 100 * static_cast<double>(compressed.size()) / static_cast<double>(phone.sync_json.size())
              << " % saved; it is read just like the other.\n\nAll is as expected.\n";
}

}  // namespace

int main(int argc, char** argv) {
    try {
        run(argc > 1 ? argv[1] : "/usr/share/iso-codes/json/iso_3166-2.json");
        return 0;
    } catch (const std::exception& failure) {
        std::cout.flush();
        std::cerr << "\nThe demo failed: " << failure.what() << '\n';
        return 1;
    }
}
