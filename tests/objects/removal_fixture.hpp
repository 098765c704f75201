// A working copy whose files go to its trash, and a host that is asked about them.
#pragma once

#include "copy_fixture.hpp"

#include "system/os.hpp"

#include <cerrno>

namespace test {

struct Host : Report {
    std::vector<int32_t> answers; // one a question; then nobody answers
    size_t asked = 0;
    size_t break_at; // lines told until the user breaks off

    explicit Host(std::vector<int32_t> given = {}, size_t lines_told = SIZE_MAX)
        : answers(std::move(given)), break_at(lines_told) {
        usrbrk = [](auto *n) { return of(n).lines.size() >= of(n).break_at; };
        error = [](auto *n, auto *) { of(n).lines.push_back("error"); };
        dialog = [](auto *n, auto *) {
            Host &host = of(n);
            return host.asked < host.answers.size() ? host.answers[host.asked++] : -1;
        };
    }
    // What was told after the start: "word path;" and the end, words as their keys.
    std::string told() const {
        std::string all;
        for (size_t i = 1; i < lines.size(); ++i) all += by_key(lines[i]) + ";";
        return all;
    }

  private:
    static Host &of(const Notify *n) { return const_cast<Host &>(*static_cast<const Host *>(n)); }
    static std::string by_key(const std::string &line) {
        for (auto *key : {u"action.sDeleted", u"action.sSkipped", u"action.sReverted",
                          u"action.sRestored", u"action.sFailed"})
            if (line.starts_with(text(key) + " "))
                return narrow(key).substr(8) + line.substr(text(key).size());
        return line.substr(0, line.find(':'));
    }
};

class RemovalTest : public WorkingCopyTest {
  protected:
    const zev::os::Calls kept = zev::os::calls;
    void TearDown() override { zev::os::calls = kept; }

    using Operation = bool (*)(Index *, PathSpec *);
    std::string run(Operation operation, std::vector<std::u16string> patterns, uint32_t options,
                    Host host = Host()) {
        IndexPtr index = lock();
        EXPECT_OK(operation(index.get(), spec(patterns, options, &host).get()));
        EXPECT_OK(operation == zIndexRemove || zIndexWrite(index.get()));
        return host.told();
    }
    static std::string failed(const zwchar *key, const std::string &path) {
        return "Failed " + narrow(zI18nTextFormat(zI18nCurrentLang(), key, wide(path).c_str())) +
               ";";
    }
};

} // namespace test
