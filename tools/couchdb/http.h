#pragma once

#include <curl/curl.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace zentadb {

struct Answer {
    long status = 0;
    std::string body;

    [[nodiscard]] bool is_success() const { return status >= 200 && status < 300; }
};

// Sends requests to one server with libcurl, which also handles TLS, proxies and .netrc. Retries temporary failures
// with growing pauses.
class HttpClient {
   public:
    struct Options {
        unsigned retries = 5;
        unsigned seconds = 600;  // that one request may take, with all its tries
        // Called before each pause.
        std::function<void(const std::string&)> waiting = [](const std::string&) {};
    };

    // The user and the password of the URL are taken out of it, or else come from ZENTADB_USER and ZENTADB_PASSWORD; or
    // a bearer token from ZENTADB_TOKEN. Throws Failure (usage) for anything but the URL of a database.
    HttpClient(const std::string& url, Options options);

    // Without credentials.
    [[nodiscard]] const std::string& url() const { return url_; }
    // Whether a password would travel in the clear to another machine.
    [[nodiscard]] bool exposes_credentials() const { return exposes_credentials_; }

    // Sends a request for a path below the URL, with a JSON body unless that is empty. Returns any response that is not
    // a temporary failure. Throws Failure (network) if none arrives.
    [[nodiscard]] Answer send(const std::string& method, const std::string& path, const std::string& body = {});

   private:
    // The result of one attempt. `problem` says why to try again; it is empty otherwise.
    struct Try {
        Answer answer;
        std::string problem;
        bool is_temporary = true;
        long retry_after = 0;
    };
    [[nodiscard]] Try attempt(const std::string& method, const std::string& path, const std::string& body,
                              std::chrono::milliseconds limit);

    struct Cleanup {
        void operator()(CURL* curl) const noexcept { curl_easy_cleanup(curl); }
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };

    Options options_;
    std::string url_;
    bool exposes_credentials_ = false;
    std::unique_ptr<curl_slist, Cleanup> headers_;
    std::unique_ptr<CURL, Cleanup> curl_;
};

// A text as a part of a path or a value in a query.
[[nodiscard]] std::string url_encoded(const std::string& text);

}  // namespace zentadb
