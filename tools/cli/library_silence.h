#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace zentadb {

// Silences standard error while it lives. A merge that fails prints lines there that say no more than its error, and
// may contain any bytes of the data. The user gets the error as a message instead.
class LibrarySilence {
   public:
    LibrarySilence() : kept_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
        const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nothing < 0) return;
        if (kept_ >= 0) ::dup2(nothing, STDERR_FILENO);
        ::close(nothing);
    }
    ~LibrarySilence() {
        if (kept_ < 0) return;
        ::dup2(kept_, STDERR_FILENO);
        ::close(kept_);
    }
    LibrarySilence(const LibrarySilence&) = delete;
    LibrarySilence& operator=(const LibrarySilence&) = delete;

   private:
    int kept_;
};

}  // namespace zentadb
