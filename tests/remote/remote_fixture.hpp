// A project on a server, a working copy of it, and a relay between them.
#pragma once

#include "../network/commit_fixture.hpp"
#include "../objects/drawing_fixture.hpp"
#include "relay.hpp"
#include "rights.hpp"

#include "zev/login.h"
#include "zev/remote.h"

namespace test {

using RemotePtr = zev::Owned<Remote, zRemoteFree>;

// What an operation told its host; it breaks off where `asks_left` runs out.
struct Told : Notify {
    std::vector<std::string> errors, actions;
    int asks_left = -1; // never

    Told() : Notify{} {
        error = [](const Notify *self, const zwchar *text) {
            mine(self)->errors.push_back(narrow(text));
        };
        action = [](const Notify *self, const zwchar *word, const zwchar *text) {
            mine(self)->actions.push_back(narrow(word) + ": " + narrow(text));
        };
        usrbrk = [](const Notify *self) {
            int &left = mine(self)->asks_left;
            return left >= 0 && left-- == 0;
        };
    }
    std::string only() const { return errors.size() == 1 ? errors[0] : each(); }
    std::string each() const {
        std::string all;
        for (const std::string &text : errors) all += text + "|";
        return all;
    }

  private:
    static Told *mine(const Notify *self) {
        return static_cast<Told *>(const_cast<Notify *>(self));
    }
};

inline Oid oid(std::string_view text) {
    Oid id{};
    EXPECT_TRUE(zOidFromStr(&id, wide(text.substr(0, 40)).c_str())) << text;
    return id;
}
inline std::string text_of(const Oid *id) {
    zwchar text[41] = u"none";
    if (id) zOidFormat(text, id);
    return narrow(text);
}

struct Session : testing::Test {
    void SetUp() override {
        rights.codes["ann"] = "code";
        rights.bits["ann"]["/"] = 112;
        zLoginInfoSet(u"ann", nullptr, u"code");
        make_project(service, "ann/plant");
        copy.reset(zRepositoryInit((dir / u"copy").c_str(), false));
        ASSERT_OK(copy);
        remote.reset(zRemoteSetup(copy.get(), wide(relay.url()).c_str()));
        ASSERT_OK(remote);
        ASSERT_OK(zBranchInit(copy.get(), u"master", u"origin", u"refs/heads/master"));
    }

    std::string at() const { return (dir.path() / "copy").string(); }
    // The system's git on the working copy.
    std::string git(const std::string &command, int *status = nullptr) const {
        return run("git -C " + at() + " " + command + " 2>&1", status);
    }
    // Of the copy, also those that lead to nothing: "NAME TARGET" a line.
    std::string refs() const {
        std::string all;
        zReferenceForeach(
            copy.get(),
            [](Reference *reference, void *context) {
                const bool direct = zReferenceType(reference) == 1;
                const std::string target = direct ? text_of(zReferenceTarget(reference))
                                                  : narrow(zReferenceSymbolic(reference));
                *static_cast<std::string *>(context) +=
                    narrow(zReferenceName(reference)) + " " + target + "\n";
                return true;
            },
            &all);
        return all;
    }
    // Opens the copy anew, as another process would.
    void reopen() {
        remote.reset();
        copy.reset(zRepositoryOpen(wide(at()).c_str()));
        remote.reset(zRemoteOpen(copy.get()));
        ASSERT_OK(remote);
    }
    bool has(const std::string &id) const {
        int status = 0;
        git("cat-file -e " + id, &status);
        return !status;
    }
    std::string objects() const { // of the copy, loose and packed
        return git("cat-file --batch-check='%(objectname)' --batch-all-objects");
    }
    std::string commit(const std::string &path, const std::string &bytes, int hour = 0) {
        return commit_file(service, "ann/plant", path, &bytes, hour);
    }
    std::string server(const std::string &command) { return service.git("ann/plant", command); }

    void TearDown() override { zLoginInfoClear(); }

    Rights rights;
    Service service{u"none", rights.table()};
    Relay relay{service.port()};
    TempDir dir;
    RepositoryPtr copy;
    RemotePtr remote;
    Told told;
};

} // namespace test
