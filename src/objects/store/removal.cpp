// The way out of a repository: its place, its files, which lie there or where a link leads, and
// aside.
#include "objects/store/removal.hpp"

#include "common/errno.hpp"
#include "common/guard.hpp"
#include "common/utf.hpp"
#include "system/flock.hpp"
#include "system/os.hpp"
#include "zev/oid.h"
#include "zev/path.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

namespace zev {

namespace {

using Lock = Owned<Flock, zFlockClose>;

// Before the last slash; "." for a name alone.
std::u16string above(const std::u16string &path) {
    const size_t slash = path.rfind(u'/');
    if (slash == path.npos) return u".";
    return slash ? path.substr(0, slash) : u"/";
}

constexpr size_t kDrawn = 8; // digits that tell those of one name from each other

struct Aside {
    std::u16string room, name; // the name as it is cut

    explicit Aside(std::u16string place);
    std::u16string draw() const;
    bool is_own(std::u16string_view left) const;
    bool is_room() const;
    bool sweep() const;
};

Aside::Aside(std::u16string place) {
    constexpr size_t kMost = 60; // units, which have three bytes or less
    std::ranges::replace(place, u'\\', u'/');
    while (place.size() > 1 && place.back() == u'/') place.pop_back();
    const size_t slash = place.rfind(u'/') + 1;
    room = place.substr(0, slash) + u".zev-removed";
    name = place.substr(slash, kMost);
    if (!name.empty() && (name.back() & 0xFC00) == 0xD800) name.pop_back(); // half a character
}

std::u16string Aside::draw() const {
    Oid id;
    zwchar digits[kDrawn + 1];
    if (!zOidRand(&id) || !zOidNFormat(digits, kDrawn, &id)) return {};
    std::u16string path = room + u"/" + name + u"." + digits;
    if (path.size() < Z_PATH_MAX) return path;
    return fail_os(ENAMETOOLONG, path), std::u16string();
}

bool Aside::is_own(std::u16string_view left) const {
    return left.size() == name.size() + 1 + kDrawn && left.starts_with(name + u".");
}

// Where somebody leads it elsewhere, what is there is nobody's to remove.
bool Aside::is_room() const {
    struct stat status;
    if (!os::lstat(room.c_str(), &status)) return false;
    return S_ISDIR(status.st_mode) || (errno = ENOTDIR, false);
}

// Whoever else removes it holds a lock beside it.
bool remove_left(const std::u16string &path) {
    const Lock lock(zFlockOpen(path.c_str(), false));
    return lock && (os::remove_tree(path.c_str(), false) || fail_errno(path));
}

bool Aside::sweep() const {
    std::vector<os::Name> names;
    if (!is_room() || !os::read_dir(room.c_str(), &names)) return false;
    bool found = false, done = true;
    for (const os::Name &left : names) {
        if (left.text == u"." || left.text == u"..") continue;
        if (const auto locked = locked_name(left.text); !left.directory && !locked.empty())
            zFlockPurge((room + u"/").append(locked).c_str());
        if (!left.directory) continue;
        const bool own = is_own(left.text);
        const bool gone = remove_left(room + u"/" + left.text);
        found |= own;
        done &= gone || !own;
    }
    os::remove_dir(room.c_str());
    return found && done;
}

struct Leaving {
    const std::u16string &place;
    std::u16string files = place, aside{};
    bool linked = false;
    Lock lock{}; // so that nobody sweeps what is about to come back

    bool find();
    bool go();
    void come_back() const;
    bool remove_files();
};

bool Leaving::find() {
    struct stat status;
    if (!os::lstat(place.c_str(), &status)) return fail_errno(place);
    linked = S_ISLNK(status.st_mode);
    if (linked && !os::real_path(place.c_str(), &files)) return fail_errno(place);
    aside = place_aside(files);
    lock.reset(aside.empty() ? nullptr : zFlockOpen(aside.c_str(), false));
    return lock != nullptr;
}

// Files first: whoever is killed behind that leaves a link that leads nowhere, which is no
// repository.
bool Leaving::go() {
    if (!os::move(files.c_str(), aside.c_str(), false)) return fail_errno(files);
    if ((!linked || os::unlink(place.c_str())) && os::sync_dir(above(files).c_str()) &&
        os::sync_dir(above(place).c_str()))
        return true;
    fail_errno(place);
    come_back();
    return false;
}

void Leaving::come_back() const {
    os::move(aside.c_str(), files.c_str(), false);
    if (linked) os::make_link(place.c_str(), to_utf8(files), false);
}

bool Leaving::remove_files() {
    const bool gone = os::remove_tree(aside.c_str(), false) || fail_errno(aside);
    const KeptFailure kept;
    lock.reset();
    Aside(files).sweep();
    return gone;
}

} // namespace

std::u16string place_aside(const std::u16string &place) {
    const Aside aside(place);
    std::u16string path = aside.draw();
    if (path.empty() || (os::make_dirs(aside.room.c_str()) && aside.is_room())) return path;
    return fail_errno(aside.room), std::u16string();
}

bool sweep_aside(const std::u16string &place) {
    const KeptFailure kept;
    return Aside(place).sweep();
}

Removal remove_repository(const std::u16string &place) {
    Leaving leaving{place};
    if (leaving.find() && leaving.go())
        return leaving.remove_files() ? Removal::whole : Removal::partly;
    const KeptFailure kept;
    leaving.lock.reset();
    if (!leaving.aside.empty()) os::remove_dir(above(leaving.aside).c_str());
    return Removal::none;
}

} // namespace zev
