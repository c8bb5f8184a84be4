#include "couchdb/http.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <new>
#include <random>
#include <thread>
#include <utility>

#include "cli/failure.h"
#include "cli/table.h"

namespace zentadb {

namespace {

// Larger than any expected response. A server that sends more must not fill the memory; parsing takes much more than
// the text.
constexpr std::size_t largest_answer = std::size_t{256} << 20;

std::size_t take_body(const char* data, std::size_t size, std::size_t count, void* body) {
    auto& text = *static_cast<std::string*>(body);
    if (text.size() + size * count > largest_answer) return 0;
    try {
        text.append(data, size * count);
    } catch (const std::bad_alloc&) {  // which libcurl could not pass on
        return 0;
    }
    return size * count;
}

class Url {
   public:
    explicit Url(const std::string& text) : url_(curl_url(), curl_url_cleanup) {
        if (!url_) throw std::bad_alloc();
        if (curl_url_set(url_.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) fail();
        if (part(CURLUPART_SCHEME) != "http" && part(CURLUPART_SCHEME) != "https") fail();
        if (!part(CURLUPART_QUERY).empty() || !part(CURLUPART_FRAGMENT).empty()) fail();
        if (part(CURLUPART_PATH).find_first_not_of('/') == std::string::npos) fail();
    }

    [[nodiscard]] std::string part(CURLUPart which, unsigned flags = 0) const {
        char* text = nullptr;
        if (curl_url_get(url_.get(), which, &text, flags) != CURLUE_OK) return {};
        const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
        return text;
    }

    [[nodiscard]] std::string without_credentials() {
        curl_url_set(url_.get(), CURLUPART_USER, nullptr, 0);
        curl_url_set(url_.get(), CURLUPART_PASSWORD, nullptr, 0);
        std::string text = part(CURLUPART_URL);
        while (text.ends_with('/')) text.pop_back();
        return text;
    }

    [[nodiscard]] bool is_this_machine() const {
        const std::string host = part(CURLUPART_HOST);
        return host == "localhost" || host == "[::1]" ||
               (host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string::npos);
    }

   private:
    [[noreturn]] static void fail() {
        throw Failure(ExitCode::usage, "not the URL of a database", "It looks like https://couch.example.org/my-data");
    }

    std::unique_ptr<CURLU, void (*)(CURLU*)> url_;
};

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool is_temporary(CURLcode code) {
    constexpr std::array codes = {CURLE_COULDNT_RESOLVE_HOST, CURLE_COULDNT_RESOLVE_PROXY, CURLE_COULDNT_CONNECT,
                                  CURLE_OPERATION_TIMEDOUT,   CURLE_GOT_NOTHING,           CURLE_SEND_ERROR,
                                  CURLE_RECV_ERROR,           CURLE_PARTIAL_FILE,          CURLE_HTTP2,
                                  CURLE_HTTP2_STREAM};
    return std::ranges::find(codes, code) != codes.end();
}

bool is_temporary(long status) {
    constexpr std::array<long, 7> statuses = {408, 425, 429, 500, 502, 503, 504};
    return std::ranges::find(statuses, status) != statuses.end();
}

// Half a second, then twice as long each time; somewhat at random, so that clients do not come back all at once.
std::chrono::milliseconds pause_before(unsigned retry, long retry_after) {
    static constexpr long longest = 30'000;
    const long backoff = std::min(longest, 500L << std::min(retry, 10U));
    std::random_device random;
    const long spread = static_cast<long>(random() % 250U) * backoff / 1000;
    return std::chrono::milliseconds(std::max(std::min(retry_after * 1000, 60'000L), backoff - spread));
}

}  // namespace

std::string url_encoded(const std::string& text) {
    const std::unique_ptr<char, void (*)(void*)> encoded(
        curl_easy_escape(nullptr, text.c_str(), static_cast<int>(text.size())), curl_free);
    if (!encoded) throw std::bad_alloc();
    return encoded.get();
}

HttpClient::HttpClient(const std::string& url, Options options) : options_(std::move(options)) {
    Url parts(url);
    std::string user = parts.part(CURLUPART_USER, CURLU_URLDECODE);
    std::string password = parts.part(CURLUPART_PASSWORD, CURLU_URLDECODE);
    if (user.empty()) user = environment("ZENTADB_USER");
    if (password.empty()) password = environment("ZENTADB_PASSWORD");
    const std::string token = environment("ZENTADB_TOKEN");
    exposes_credentials_ =
        (!user.empty() || !token.empty()) && parts.part(CURLUPART_SCHEME) == "http" && !parts.is_this_machine();
    url_ = parts.without_credentials();

    for (const char* header : {"Content-Type: application/json", "Accept: application/json", "Expect:"}) {
        curl_slist* longer = curl_slist_append(headers_.get(), header);
        if (longer == nullptr) throw std::bad_alloc();
        (void)headers_.release();
        headers_.reset(longer);
    }
    curl_.reset(curl_easy_init());
    if (!curl_) throw std::bad_alloc();
    CURL* curl = curl_.get();
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers_.get());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "zentadb/" ZENTADB_VERSION);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 15L);
    // A server may take a while to respond, but not forever.
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, 90L);
    curl_easy_setopt(curl, CURLOPT_NETRC, CURL_NETRC_OPTIONAL);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take_body);
    if (!user.empty()) curl_easy_setopt(curl, CURLOPT_USERNAME, user.c_str());
    if (!password.empty()) curl_easy_setopt(curl, CURLOPT_PASSWORD, password.c_str());
    if (!token.empty() && user.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BEARER);
        curl_easy_setopt(curl, CURLOPT_XOAUTH2_BEARER, token.c_str());
    }
    if (const std::string bundle = environment("CURL_CA_BUNDLE"); !bundle.empty()) {
        curl_easy_setopt(curl, CURLOPT_CAINFO, bundle.c_str());
    }
}

HttpClient::Try HttpClient::attempt(const std::string& method, const std::string& path, const std::string& body,
                                    std::chrono::milliseconds limit) {
    Try result;
    CURL* curl = curl_.get();
    std::array<char, CURL_ERROR_SIZE> message{};
    const std::string url = url_ + path;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, message.data());
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(limit.count()));
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &result.answer.body);
    if (body.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    } else {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    }
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    const CURLcode code = curl_easy_perform(curl);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
    if (code != CURLE_OK) {
        result.problem = message[0] != '\0' ? message.data() : curl_easy_strerror(code);
        if (code == CURLE_WRITE_ERROR) result.problem = "its response is too large; use a smaller --batch";
        result.is_temporary = is_temporary(code);
        return result;
    }
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &result.answer.status);
    if (is_temporary(result.answer.status)) {
        result.problem = "it returns status " + std::to_string(result.answer.status);
        curl_off_t seconds = 0;
        curl_easy_getinfo(curl, CURLINFO_RETRY_AFTER, &seconds);
        result.retry_after = static_cast<long>(seconds);
    }
    return result;
}

Answer HttpClient::send(const std::string& method, const std::string& path, const std::string& body) {
    // A server that sends a byte now and then must not keep the user waiting forever.
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(options_.seconds);
    const auto left = [&] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    };
    for (unsigned retry = 0;; ++retry) {
        Try result = attempt(method, path, body, std::max(left(), std::chrono::milliseconds(1)));
        if (result.problem.empty()) return std::move(result.answer);
        if (!result.is_temporary) {
            throw Failure(ExitCode::network, url_ + ": " + result.problem,
                          "For certificates of your own, name their file in CURL_CA_BUNDLE.");
        }
        const auto pause = pause_before(retry, result.retry_after);
        if (retry == options_.retries || pause >= left()) {
            throw Failure(
                ExitCode::network, url_ + ": the server is not available: " + result.problem,
                "Tried " + counted(retry + 1, "time") + ". Run the same again later; it goes on where it was.");
        }
        options_.waiting("waiting for the server: " + result.problem);
        std::this_thread::sleep_for(pause);
    }
}

}  // namespace zentadb
