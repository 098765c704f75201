// What every test program shares: a directory of its own, files in it, failures with their
// reason.
#pragma once

#include "zev/zev.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace test {

inline std::string narrow(const zwchar *text) {
    return text ? std::string(zStrtoutf8(text)) : "(null)";
}
inline std::u16string wide(std::string_view text) {
    return zStrfromutf8(std::string(text).c_str());
}

// A new directory, removed with all it holds at scope's end.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::filesystem::path &path() const { return path_; }
    std::u16string operator/(std::u16string_view name) const {
        return path_.u16string() + u"/" + std::u16string(name);
    }

  private:
    std::filesystem::path path_;
};

// Whole files; write makes the directories on the way.
void write(const std::filesystem::path &path, std::string_view bytes);
std::string read(const std::filesystem::path &path);

// What a shell command printed; its exit status in `status` if that is given.
std::string run(const std::string &command, int *status = nullptr);

// While it lives the process counts with a decimal comma, as a host may; the locale is made on the
// spot, since few machines have one installed.
class CommaLocale {
  public:
    CommaLocale();
    ~CommaLocale();
    CommaLocale(const CommaLocale &) = delete;
    CommaLocale &operator=(const CommaLocale &) = delete;

  private:
    TempDir dir_;
    std::string before_;
};

// Gives what a function of the library returned back at scope's end.
template <class T> using Guard = std::unique_ptr<T, void (*)(T *)>;
template <class T> Guard<T> guard(T *pointer, void (*release)(T *)) {
    return Guard<T>(pointer, release);
}

} // namespace test

// Fails with the text of the thread's error record.
#define ASSERT_OK(expression) ASSERT_TRUE(expression) << test::narrow(zErrorDetail())
#define EXPECT_OK(expression) EXPECT_TRUE(expression) << test::narrow(zErrorDetail())

// Fail unless the expression gives nothing and leaves that class, or that code, in the record.
#define EXPECT_REFUSED(expression, error_class)                                                    \
    EXPECT_TRUE(!(expression) && zErrorClass() == (error_class)) << test::narrow(zErrorDetail())
#define EXPECT_FAILS_WITH(expression, error_code)                                                  \
    EXPECT_TRUE(!(expression) && zErrorCode() == (error_code)) << test::narrow(zErrorDetail())
