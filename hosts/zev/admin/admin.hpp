// Administration: a noun a file, each with a table of its verbs. What a verb takes is written in
// the table as a user would write it, and read from there.
#pragma once

#include "server.hpp"
#include "verb.hpp"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace host {

// A verb under way: the session, and what was given by the names that the table has.
class AdminCall {
  public:
    AdminCall(Host &host, std::map<std::string, std::string> given);

    Host &host;
    Admin *admin() const { return admin_.get(); }
    const std::string &server() const { return server_; }
    const std::string &user() const { return account_.user; } // whose session it is

    bool has(const std::string &name) const { return given_.contains(name); }
    // "" for what was not given.
    std::string text(const std::string &name) const;
    std::u16string wide_text(const std::string &name) const { return wide(text(name)); }

    // False for the status that an option lets pass: Z_AUTH_EXISTS by --if-missing,
    // Z_AUTH_NOT_FOUND by --if-exists. Throws for every other that isn't Z_AUTH_DONE.
    bool done(int32_t status, const std::string &what) const;
    // The end of a verb that changes something: one line, or one record.
    void tell(const char *act, const std::string &what, const std::string &line,
              bool changed = true) const;

  private:
    std::map<std::string, std::string> given_;
    std::string server_;
    Account account_;
    Owned<Admin, zAdminLogoutRms> admin_;
};

struct AdminVerb {
    const char *name;
    const char *about;
    const char *words;   // "PROJECT ROLE [USER]"
    const char *options; // "--if-missing --mail ADDRESS"
    void (*run)(AdminCall &call);
};

struct AdminNoun {
    const char *name;
    const char *about;
    const char *footer;
    std::span<const AdminVerb> verbs;
};

extern const AdminNoun kProjectNoun, kUserNoun, kGroupNoun, kRoleNoun, kRightsNoun, kDirectoryNoun;

// ---- What nouns share

// "owner/name".
struct ProjectName {
    explicit ProjectName(const std::string &text);
    std::u16string owner, name;
};

// The elements of an array that a server sent, which may be null.
template <class Visit> void each(const Json *array, Visit visit) {
    if (!array || !zJsonIsArray(array)) return;
    for (uint64_t i = 0; i < zJsonArraySize(array); ++i)
        if (const Json *element = zJsonArrayAt(array, i); zJsonIsObject(element)) visit(element);
}
// Of an object; empty, zero and false for what isn't there.
std::string member(const Json *object, const zwchar *name);
int32_t number(const Json *object, const zwchar *name);
bool flag(const Json *object, const zwchar *name);

// A group by the names that lead to it, "/" between them; the root is "/". Throws.
int32_t find_group(const AdminCall &call, const std::string &path);

// All groups with their paths, and their users where they are wanted. Throws.
struct GroupPlace {
    int32_t id, parent;
    std::string path;
    std::vector<std::string> users;
};
std::vector<GroupPlace> list_groups(const AdminCall &call);

// Bits as letters, r, w and e, and "-" for none.
std::string letters(int32_t bits);
int32_t bits_of(const std::string &letters); // throws

} // namespace host
