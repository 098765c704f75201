// All objects of a store in one pack. In its order: what there is, listed; the pack, built from
// that and indexed, by which every object of it is unfolded and hashed; its ids beside the list;
// the sync of the file system; and only then are files removed, an index ahead of its pack, since a
// pack without one is nothing to anybody.
//
// libgit2 looks for differences among objects of one type that stand near each other by the ends of
// their names. Ids alone have none, so that the trees are read for them first, those of a
// branch as those that nobody names any more.
#include "objects/store/pack.hpp"

#include "common/errno.hpp"
#include "objects/store/loose_object.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/pack_file.hpp"
#include "system/os.hpp"
#include "zev/notify.h"
#include "zev/oid.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <string_view>

namespace zev {

namespace {

constexpr uint64_t kPoll = 256; // objects between two looks at the user's break
constexpr size_t kNameEnd = 16; // of a name so many bytes count in the search
constexpr uint64_t kIndexHead = 8 + 256 * 4 + 2 * 20, kIndexEach = 20 + 4 + 4;

struct Below {
    bool operator()(const git_oid &a, const git_oid &b) const { return git_oid_cmp(&a, &b) < 0; }
};

struct File {
    std::u16string path; // of a pack without its extension
    uint64_t size;
};

// What a file takes on the disk: of a small one that is a block.
uint64_t size_of(const std::u16string &path) {
    constexpr uint64_t kUnit = 512; // of st_blocks, whatever the file system's
    struct stat status;
    return os::lstat(path.c_str(), &status) ? static_cast<uint64_t>(status.st_blocks) * kUnit : 0;
}

constexpr uint64_t kBlock = 4096;
uint64_t in_blocks(uint64_t size) { return (size + kBlock - 1) / kBlock * kBlock; }

bool has(const std::u16string &path) {
    struct stat status;
    return os::lstat(path.c_str(), &status);
}

bool parse(git_oid *id, const std::u16string &digits) {
    return digits.size() == 40 && digits.find_first_not_of(u"0123456789abcdef") == digits.npos &&
           !git_oid_fromstr(id, to_utf8(digits).c_str());
}

template <class F> int each_id(const std::u16string &index, F visit) {
    git_odb_backend *pack = nullptr;
    int code = git_odb_backend_one_pack(&pack, to_utf8(index).c_str());
    if (code < 0) return code;
    const Finally freed([pack] { pack->free(pack); });
    return pack->foreach (
        pack, [](const git_oid *id, void *self) { return (*static_cast<F *>(self))(*id), 0; },
        &visit);
}

class Packing {
  public:
    Packing(Repack &result, Repository *repository, const Notify *notify)
        : result_(result), git_(repository->handle.get()), notify_(notify),
          place_(objects_directory(git_)) {}

    bool run(bool writes) {
        if (!list_loose() || !list_packs()) return false;
        if (ids_.empty()) return true;
        result_.objects = ids_.size();
        result_.loose = loose_.size();
        result_.packs = packs_.size();
        if (writes) os::make_dirs((place_ + u"pack/").c_str());
        const auto file = writes ? PackFile::begin(place_ + u"pack/") : nullptr;
        if ((writes && !file) || !name_objects() || !build(file.get())) return false;
        if (size_ >= result_.before) return true;
        result_.after = size_;
        if (!writes) return true;
        if (!file->commit() || !holds_all(file->path(u".idx"))) return false;
        if (!os::sync_tree(place_.c_str())) return fail_errno(place_.c_str());
        remove_files(file->path(u""));
        return true;
    }

  private:
    // ---- What there is

    bool list_loose() {
        std::vector<os::Name> upper, lower;
        if (!os::read_dir(place_.c_str(), &upper)) return fail_errno(place_.c_str());
        for (const os::Name &name : upper) {
            if (!name.directory || name.text.size() != 2) continue;
            lower.clear();
            os::read_dir((place_ + name.text).c_str(), &lower);
            for (const os::Name &rest : lower)
                if (git_oid id; parse(&id, name.text + rest.text))
                    take(loose_, place_ + name.text + u'/' + rest.text, id);
        }
        return true;
    }

    void take(std::vector<File> &files, const std::u16string &path, const git_oid &id) {
        files.push_back({path, size_of(path)});
        result_.before += files.back().size;
        ids_.emplace(id, std::string());
    }

    // One that git is told to keep, that leans on others elsewhere, or that tells of the age of
    // what it holds, is left as it is, with what is in it alone.
    static bool is_kept(const std::u16string &base) {
        return has(base + u".keep") || has(base + u".promisor") || has(base + u".mtimes");
    }

    bool list_packs() {
        std::vector<os::Name> names;
        os::read_dir((place_ + u"pack").c_str(), &names);
        for (const os::Name &name : names) {
            constexpr std::u16string_view kEnd = u".idx";
            if (!name.text.starts_with(u"pack-") || !name.text.ends_with(kEnd)) continue;
            const std::u16string path = place_ + u"pack/" + name.text;
            const std::u16string base = path.substr(0, path.size() - kEnd.size());
            if (is_kept(base) || !has(base + u".pack")) continue;
            const int code = each_id(path, [&](const git_oid &id) { ids_.emplace(id, ""); });
            if (code < 0) return fail_git(code);
            packs_.push_back({base, size_of(path) + size_of(base + u".pack")});
            result_.before += packs_.back().size;
        }
        return true;
    }

    // ---- The pack

    bool is_broken(uint64_t &count) {
        if (++count % kPoll) return false;
        zNotifyProgress(notify_, u"packing object %llu of %llu",
                        static_cast<unsigned long long>(count),
                        static_cast<unsigned long long>(ids_.size()));
        return zNotifyIsUsrbrk(notify_);
    }

    bool name_objects() {
        git::Odb odb;
        if (int code = git_repository_odb(out(odb), git_); code < 0) return fail_git(code);
        uint64_t count = 0;
        for (const auto &entry : ids_) {
            size_t size;
            git_object_t type;
            if (is_broken(count)) return raise_canceled();
            int code = git_odb_read_header(&size, &type, odb.get(), &entry.first);
            if (code < 0) return fail_git(code);
            if (type != GIT_OBJECT_TREE) continue;
            git::OdbObject tree;
            if (code = git_odb_read(out(tree), odb.get(), &entry.first); code < 0)
                return fail_git(code);
            name_entries({static_cast<const char *>(git_odb_object_data(tree.get())),
                          git_odb_object_size(tree.get())});
        }
        return true;
    }

    // Mode in octal digits, blank, name, zero byte, 20 bytes of id.
    void name_entries(std::string_view tree) {
        while (!tree.empty()) {
            const size_t blank = tree.find(' '), zero = tree.find('\0');
            if (blank > zero || zero == tree.npos || tree.size() - zero <= GIT_OID_RAWSZ) return;
            git_oid id;
            memcpy(id.id, tree.data() + zero + 1, GIT_OID_RAWSZ);
            const std::string_view name = tree.substr(blank + 1, zero - blank - 1);
            const auto found = ids_.find(id);
            if (found != ids_.end() && found->second.empty())
                found->second = name.substr(name.size() - std::min(name.size(), kNameEnd));
            tree.remove_prefix(zero + 1 + GIT_OID_RAWSZ);
        }
    }

    struct Walk {
        Packing *self;
        PackFile *file;
        bool stored = true;
        bool broken = false;
        int take(const void *bytes, size_t size) {
            self->size_ += size;
            broken = zNotifyIsUsrbrk(self->notify_);
            stored = !file || file->append(bytes, size);
            return stored && !broken ? 0 : GIT_EUSER;
        }
    };

    // Without a file it is only measured. The search asks nobody: its threads are none of the
    // host's.
    bool build(PackFile *file) {
        GitPackBuilder builder;
        int code = new_pack_builder(builder, git_, true);
        for (auto at = ids_.begin(); code >= 0 && at != ids_.end(); ++at)
            code = git_packbuilder_insert(builder.get(), &at->first,
                                          at->second.empty() ? nullptr : at->second.c_str());
        if (code < 0) return fail_git(code);
        Walk walk{this, file};
        code = git_packbuilder_foreach(
            builder.get(),
            [](void *bytes, size_t size, void *self) {
                return static_cast<Walk *>(self)->take(bytes, size);
            },
            &walk);
        if (walk.broken) return raise_canceled();
        if (!walk.stored) return false;
        size_ = in_blocks(size_) + in_blocks(kIndexHead + kIndexEach * ids_.size());
        return code ? fail_git(code) : true;
    }

    bool holds_all(const std::u16string &index) {
        uint64_t found = 0;
        const int code = each_id(index, [&](const git_oid &id) { found += ids_.contains(id); });
        if (code < 0) return fail_git(code);
        if (found == ids_.size()) return true;
        git_error_set_str(GIT_ERROR_ODB, "the new pack lacks objects");
        return fail_git(GIT_ERROR);
    }

    // ---- What it takes the place of

    static bool remove_file(const std::u16string &path) {
        return os::unlink(path.c_str()) || errno == ENOENT;
    }

    // What can't be removed stays, and costs room; so does what it names.
    void remove_files(const std::u16string &made) {
        const bool is_named = !remove_file(place_ + u"pack/multi-pack-index");
        for (const File &pack : packs_) {
            if (pack.path == made || is_named || !remove_file(pack.path + u".idx")) continue;
            for (const char16_t *end : {u".bitmap", u".rev", u".pack"})
                remove_file(pack.path + end);
        }
        // A directory that is empty by now stays beside linked work directories: who commits there
        // holds another lock, and may be about to put an object into it.
        const bool alone = !has(place_ + u"../worktrees");
        for (const File &file : loose_) {
            os::unlink(file.path.c_str());
            if (alone) os::remove_dir(file.path.substr(0, file.path.rfind(u'/')).c_str());
        }
    }

    Repack &result_;
    git_repository *git_;
    const Notify *notify_;
    const std::u16string place_;                // of objects, with a slash behind
    std::map<git_oid, std::string, Below> ids_; // with the ends of their names
    std::vector<File> loose_, packs_;
    uint64_t size_ = 0; // of the new pack and its index
};

} // namespace

} // namespace zev

using namespace zev;

bool zRepositoryRepack(Repack *result, Repository *repository, bool writes,
                       const Notify *notify) try {
    if (!result || !repository) return fail_args();
    *result = {};
    const bool done = Packing(*result, repository, notify).run(writes);
    if (!result->after) result->after = result->before;
    return done;
} catch (...) {
    return fail_thrown();
}
