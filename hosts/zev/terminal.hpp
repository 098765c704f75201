// Terminal: a dialogue with the user, where there is one.
#pragma once

#include <optional>
#include <string>

#include <termios.h>

namespace host {

// By TERM: one that shows letters, and takes no colours and no line back.
bool is_dumb_terminal();

// A terminal with its echo off, as it was afterwards. False where there was none to set.
class Silence {
  public:
    explicit Silence(int fd);
    ~Silence();
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

    explicit operator bool() const { return known_; }

  private:
    int fd_;
    termios before_{};
    bool known_;
};

// The terminal of this process, or where that can't be opened stdin and stderr, if they are one.
class Terminal {
  public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    explicit operator bool() const { return input_ >= 0; }
    void write(const std::string &text) const;
    // A line without its end; nothing at the end of input and after Ctrl-C.
    std::optional<std::string> read_line() const;
    // The same behind a question, without an echo.
    std::optional<std::string> read_secret(const std::string &question) const;

  private:
    int input_ = -1, output_ = -1;
    bool own_ = false;
};

// What stands for a password wherever it travels, 40 hexadecimal digits.
std::u16string wire_form(const std::string &password);

} // namespace host
