// A connected working copy, and what listing callbacks were told.
#pragma once

#include "../objects/conflict_fixture.hpp"

#include <sstream>

namespace test {

using Lines = std::vector<std::string>;

// "status old>path"; stops after `most` calls.
struct Listed {
    size_t most = SIZE_MAX;
    Lines lines{};

    static bool take(int32_t status, const zwchar *from, const zwchar *path, void *context) {
        auto *self = static_cast<Listed *>(context);
        self->lines.push_back(std::to_string(status) + " " + narrow(from) + ">" + narrow(path));
        return self->lines.size() < self->most;
    }
};

// Stands on WorkingCopyTest or on what extends it.
template <class Base> class Connected : public Base {
  protected:
    std::u16string copy = this->place.u16string();

    void TearDown() override { zCommandDisconnect(copy.c_str()); }
    void connect() { ASSERT_OK(zCommandConnect(copy.c_str())); }
    void reload() { zCommandReload(copy.c_str(), nullptr, false); }

    Lines list(const zwchar *directory = nullptr) {
        Listed told;
        EXPECT_OK(zCommandList(copy.c_str(), directory, Listed::take, &told));
        return told.lines;
    }
    Lines changelist(std::vector<const zwchar *> paths) {
        Listed told;
        EXPECT_OK(
            zCommandChangelist(copy.c_str(), paths.size(), paths.data(), Listed::take, &told));
        return told.lines;
    }
    Lines git_lines(const std::string &arguments) {
        Lines lines;
        std::istringstream said(git(this->place, "-c core.quotepath=off " + arguments));
        for (std::string line; std::getline(said, line);) lines.push_back(line);
        return lines;
    }
    Lines staged() { return git_lines("diff --cached --name-only --no-renames HEAD"); }
};

} // namespace test
