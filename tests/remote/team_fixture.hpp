// A project on a server that asks for rights, and the working copies of two users.
#pragma once

#include "../network/commit_fixture.hpp"
#include "../network/rights.hpp"
#include "../objects/copy_fixture.hpp"
#include "child.hpp"
#include "relay.hpp"

#include "zev/login.h"
#include "zev/shell.h"
#include "zev/verify.h"

namespace test {

namespace fs = std::filesystem;

// A host that writes everything down, answers the dialogs, and may break off at the n-th question.
struct Host : Report {
    int asks_left = -1; // never
    std::vector<int32_t> answers;
    std::vector<std::string> dialogs; // their contents
    std::function<void()> at_line;    // at each one

    Host() {
        error = [](auto *n, auto *text) { mine(n).note("error: " + narrow(text)); };
        info = [](auto *n, auto *text) { mine(n).note("info: " + narrow(text)); };
        action = [](auto *n, auto *word, auto *text) {
            mine(n).note(narrow(word) + " " + narrow(text));
        };
        usrbrk = [](auto *n) {
            int &left = mine(n).asks_left;
            return left >= 0 && left-- == 0;
        };
        dialog = [](auto *n, const TaskDialog *shown) -> int32_t {
            Host &self = mine(n);
            self.dialogs.push_back(narrow(zTaskDialogContent(shown)));
            if (self.answers.empty()) return -1;
            const int32_t answer = self.answers.front();
            self.answers.erase(self.answers.begin());
            return answer;
        };
    }
    static Host &mine(const Notify *notify) {
        return const_cast<Host &>(static_cast<const Host &>(*static_cast<const Report *>(notify)));
    }
    void note(const std::string &line) {
        lines.push_back(line);
        if (at_line) at_line();
    }
    // The ends that were told, a letter each: done, cancel, abort.
    std::string ends() const {
        std::string all;
        for (const std::string &line : lines)
            for (const char *end : {"done: ", "cancel: ", "abort: "})
                if (line.starts_with(end)) all += end[0];
        return all;
    }
    std::string errors() const {
        std::string all;
        for (const std::string &line : lines)
            if (line.starts_with("error: ")) all += line.substr(7) + "|";
        return all;
    }
    bool told_of(const zwchar *word, const std::string &path) const {
        return told(text(word) + " " + path);
    }
};

using CheckPtr = Held<CheckSpec, zCheckSpecFree>;

// One user's copy. Each of its operations opens the repository anew, as another run would.
struct Copy {
    fs::path place;
    std::string user;
    mutable Host host{};

    RepositoryPtr open() const {
        zLoginInfoSet(wide(user).c_str(), nullptr, u"code");
        host.lines.clear();
        return RepositoryPtr(zRepositoryOpen(place.u16string().c_str()));
    }
    static PathSpec *select(std::vector<const char16_t *> paths, const Notify *notify) {
        PathSpec *made = zPathSpecNew(nullptr, 0);
        for (const auto *path : paths) zPathSpecAdd(made, path);
        zPathSpecSetNotify(made, notify);
        return made;
    }
    CheckPtr spec(const std::string &target = {}, std::vector<const char16_t *> paths = {}) const {
        CheckPtr made(zCheckSpecNew());
        const Oid id = target.empty() ? Oid{} : parsed(target);
        if (!target.empty()) zCheckSpecSetTarget(made.get(), &id);
        for (const auto *path : paths) zCheckSpecAddPath(made.get(), path);
        zCheckSpecSetNotify(made.get(), &host);
        return made;
    }

    bool update(const std::string &target = {}, std::vector<const char16_t *> paths = {}) const {
        const RepositoryPtr repository = open();
        return repository && zShellUpdate(repository.get(), spec(target, paths).get());
    }
    bool reset(const std::string &target = {}, std::vector<const char16_t *> paths = {}) const {
        const RepositoryPtr repository = open();
        return repository && zShellReset(repository.get(), spec(target, paths).get());
    }
    bool commit(std::vector<const char16_t *> paths = {}, const zwchar *message = u"mine") const {
        const RepositoryPtr repository = open();
        const Held<PathSpec, zPathSpecFree> wanted(select(paths, &host));
        return repository &&
               zShellCommit(repository.get(), wanted.get(), wide(user).c_str(), message);
    }
    std::string updates(bool refresh, std::vector<const char16_t *> paths = {}) const {
        const RepositoryPtr repository = open();
        const Held<PathSpec, zPathSpecFree> wanted(select(paths, &host));
        const DiffPtr list(zShellListUpdates(repository.get(), wanted.get(), refresh));
        return test::told(list);
    }

    std::string git(const std::string &command) const { return test::git(place, command); }
    void put(const std::string &path, std::string_view bytes) const { write(place / path, bytes); }
    std::string at(const std::string &path) const {
        return fs::exists(place / path) ? read(place / path) : "(none)";
    }
    std::string status() const { return git("status --porcelain -uall"); }
    // Index and references, and whether anything is locked.
    std::string state() const {
        std::string all =
            read(place / ".git/index") + git("for-each-ref") + git("log -1 --format=%H");
        return all + (locks().empty() ? "" : "locked: " + locks());
    }
    std::string locks() const {
        return run("find '" + place.string() + "/.git' -name '*.zlck' -o -name '*.lock'");
    }
};

// What a verification finds, a line each, and of a project what git does, too.
inline std::string findings_in(const fs::path &place, bool bare) {
    std::string all;
    VerifySpec spec{};
    spec.parts = Z_VERIFY_ALL;
    spec.found = [](const VerifyFinding *finding, void *all) {
        *static_cast<std::string *>(all) +=
            narrow(finding->path) + ": " + narrow(finding->reason) + "\n";
    };
    spec.context = &all;
    const std::u16string path = place.u16string();
    const RepositoryPtr opened(bare ? zRepositoryOpenBare(path.c_str())
                                    : zRepositoryOpen(path.c_str()));
    EXPECT_OK(opened && zVerify(nullptr, opened.get(), &spec));
    int status = 0; // a copy has no history
    const std::string fsck = bare ? git(place, "-c safe.directory='*' fsck --strict", &status) : "";
    return all + (status ? fsck : "");
}

class Team : public testing::Test {
  protected:
    void SetUp() override {
        for (const char *user : {"ann", "bob"}) {
            rights.codes[user] = "code";
            rights.bits[user]["/"] = 112;
        }
        make_project(service, "ann/plant");
    }
    void TearDown() override { zLoginInfoClear(); }

    // Past the relay a commit of somebody else; its id.
    std::string other(const std::string &path, const std::string &bytes) {
        return commit_file(service, "ann/plant", path, &bytes, hour_++ % 10);
    }
    std::string other_removes(const std::string &path) {
        return commit_file(service, "ann/plant", path, nullptr, hour_++ % 10);
    }
    std::string server(const std::string &command) { return service.git("ann/plant", command); }
    std::string server_at(const std::string &path) { return server("show HEAD:" + path); }

    Copy get(const std::string &user, const char *name = nullptr) {
        Copy made{dir.path() / (name ? name : user), user};
        zLoginInfoSet(wide(user).c_str(), nullptr, u"code");
        EXPECT_OK(zShellCheckout(wide(relay.url()).c_str(), made.place.u16string().c_str(),
                                 made.spec().get()));
        return made;
    }
    static std::string answer_of(int status) { return answer(status, "{\"error\":{}}"); }

    Rights rights;
    Service service{u"required", rights.table()};
    Relay relay{service.port()};
    TempDir dir;

  private:
    int hour_ = 0;
};

} // namespace test
