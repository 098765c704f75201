// Questions go to the terminal itself, so that stdin and stdout may be files.
#include "terminal.hpp"

#include "host.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace host {

namespace {

constexpr size_t kMaxLine = 4096;

} // namespace

bool is_dumb_terminal() {
    const char *name = getenv("TERM");
    return !name || !*name || std::string_view(name) == "dumb";
}

Silence::Silence(int fd) : fd_(fd), known_(tcgetattr(fd, &before_) == 0) {
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    if (known_) tcsetattr(fd_, TCSAFLUSH, &silent);
}

Silence::~Silence() {
    if (known_) tcsetattr(fd_, TCSAFLUSH, &before_);
}

// A process whose input and errors both go elsewhere has nobody watching, even if it was started
// from a terminal.
Terminal::Terminal() {
    if (!isatty(STDIN_FILENO) && !isatty(STDERR_FILENO)) return;
    input_ = output_ = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    own_ = input_ >= 0;
    if (own_ || !isatty(STDIN_FILENO)) return;
    input_ = STDIN_FILENO;
    output_ = STDERR_FILENO;
}

Terminal::~Terminal() {
    if (own_) close(input_);
}

void Terminal::write(const std::string &text) const {
    for (size_t at = 0; at < text.size();) {
        const ssize_t count = ::write(output_, text.data() + at, text.size() - at);
        if (count <= 0) return;
        at += static_cast<size_t>(count);
    }
}

std::optional<std::string> Terminal::read_line() const {
    std::string line;
    for (char byte; line.size() < kMaxLine; line += byte) {
        if (read(input_, &byte, 1) != 1) return {};
        if (byte == '\n' || byte == '\r') break;
    }
    return line;
}

std::optional<std::string> Terminal::read_secret(const std::string &question) const {
    const Silence silence(input_);
    write(question);
    std::optional<std::string> line = read_line();
    write("\n");
    return line;
}

std::u16string wire_form(const std::string &password) {
    const std::u16string text = wide(password);
    Oid id;
    zwchar digits[41] = {};
    check(zOidFromBuffer(&id, text.data(), text.size() * sizeof(zwchar)) &&
          zOidFormat(digits, &id));
    return digits;
}

} // namespace host
