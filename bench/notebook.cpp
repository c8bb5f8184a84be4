#include "notebook.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string_view>

namespace bench {

namespace {

// The standard's engine gives the same numbers everywhere; its distributions do not.
class Random {
   public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(engine_()) % limit; }

   private:
    std::mt19937 engine_;
};

// Words of a vocabulary of 4,000, the first ones more often than the others, as in any text. Some are escaped in JSON
// or are not ASCII.
std::string word(Random& random) {
    constexpr std::array<std::string_view, 7> special{
        "Grüße", "\\\"quoted\\\"", "line\\nbreak", "naïve", "tab\\t", "\\\\backslash", "of"};
    constexpr std::string_view consonants = "bdfghklmnprstvwz";
    constexpr std::string_view vowels = "aeiou";
    std::uint32_t rank = random.below(1 + random.below(4000));
    if (rank < special.size()) return std::string(special[rank]);
    std::string text;
    for (rank = rank * 7919 % 65537 + 40; rank != 0; rank /= 80) {
        text += consonants[rank % 16];
        text += vowels[rank / 16 % 5];
    }
    return text;
}

std::string words(Random& random, std::size_t length) {
    std::string text = word(random);
    while (text.size() < length) text += " " + word(random);
    return text;
}

std::string note(std::size_t number, unsigned edit) {
    Random random(static_cast<std::uint32_t>(number * 2654435761U + 1));
    const std::string id = std::to_string(number);
    std::string text = "{\"_id\":\"note-" + id + "\",\"title\":\"Note " + id +
                       (edit == 0 ? "" : " (edit " + std::to_string(edit) + ")");
    text += " " + words(random, 10) + "\",\"body\":\"" + words(random, 120 + random.below(281)) + "\",\"tags\":[";
    const std::uint32_t tags = random.below(4);
    for (std::uint32_t tag = 0; tag < tags; ++tag) {
        text += (tag == 0 ? "\"tag" : ",\"tag") + std::to_string(random.below(20)) + "\"";
    }
    text += "],\"count\":" + std::to_string(random.below(100000));
    text += ",\"weight\":" + std::to_string(random.below(1000)) + "." + std::to_string(1 + random.below(999));
    text += ",\"place\":{\"name\":\"Room " + std::to_string(random.below(50)) + "\",\"floor\":";
    text += std::to_string(random.below(9)) + "},\"tasks\":[";
    const std::uint32_t tasks = random.below(5);
    for (std::uint32_t task = 0; task < tasks; ++task) {
        text += (task == 0 ? "{\"_id\":\"task-" : ",{\"_id\":\"task-") + id + "-" + std::to_string(task);
        text += "\",\"text\":\"" + words(random, 10 + random.below(50)) + "\",\"done\":";
        text += random.below(2) == 0 ? "true}" : "false}";
    }
    return text + "]}";
}

std::string hash_like(std::size_t number) {
    std::array<char, 65> text;
    std::snprintf(text.data(), text.size(), "%016zx%048zx", number * 0x9e3779b97f4a7c15U, number);
    return text.data();
}

}  // namespace

std::string notebook(std::size_t notes, unsigned edited_percent, unsigned edit) {
    std::string text = "{\"name\":\"notebook\",\"notes\":[";
    for (std::size_t i = 0; i < notes; ++i) {
        if (i != 0) text += ",";
        text += note(i, i * 37 % 100 < edited_percent ? edit : 0);
    }
    return text + "]}";
}

std::string tiny_elements(std::size_t count) {
    std::string text = "{\"all\":[";
    for (std::size_t i = 0; i < count; ++i)
        text += (i == 0 ? "{\"_id\":\"e" : ",{\"_id\":\"e") + std::to_string(i) + "\"}";
    return text + "]}";
}

std::string tiny_objects(std::size_t count) {
    std::string text = "{\"#df\":true";
    for (std::size_t i = 0; i < count; ++i) text += ",\"e" + std::to_string(i) + "\":{\"a\":" + std::to_string(i) + "}";
    return text + "}";
}

std::string decimals(std::size_t count) {
    Random random(7);
    std::string text = "{\"points\":[";
    for (std::size_t i = 0; i < count; ++i) {
        text += (i == 0 ? "{\"_id\":\"p" : ",{\"_id\":\"p") + std::to_string(i) + "\",\"v\":[";
        for (int k = 0; k < 8; ++k) {
            if (k != 0) text += ",";
            text += std::to_string(random.below(2000)) + "." + std::to_string(100000 + random.below(900000));
        }
        text += "]}";
    }
    return text + "]}";
}

std::string one_document(std::size_t members) {
    Random random(11);
    std::string text = "{";
    for (std::size_t i = 0; i < members; ++i) {
        text += (i == 0 ? "\"m" : ",\"m") + std::to_string(i) + "\":\"" + words(random, 120 + random.below(281)) + "\"";
    }
    return text + "}";
}

std::string chain(std::size_t revisions) {
    std::string text = "{\"d\": {\"root\": [";
    std::string parent;
    for (std::size_t i = 0; i < revisions; ++i) {
        const std::string hash = hash_like(i);
        text += (i == 0 ? "\"" : ", \"") + hash + "_" + (i == 0 ? "first" : parent.substr(0, 7)) + "\"";
        parent = hash;
    }
    return text + "]}, \"o\": {\"" + parent + "\": {\"a\": 1}}, \"r\": \"root\"}";
}

std::string fan(std::size_t branches) {
    const std::string first = hash_like(0);
    std::string text = "{\"d\": {\"root\": [\"" + first + "_first\", [";
    for (std::size_t i = 1; i <= branches; ++i) {
        text += (i == 1 ? "\"" : ", \"") + hash_like(i) + "_" + first.substr(0, 7) + "\"";
    }
    return text + "]]}, \"r\": \"root\"}";
}

}  // namespace bench
