// Objects are read raw and once each, commits and trees in the form that git gives them:
//   commit   lines "tree <hex>", "parent <hex>" (any number), others, an empty line, the message
//   tree     entries of mode in octal digits, blank, name, zero byte, 20 bytes of id
//   tag      "object <hex>" comes first
//   shallow  in the Git directory, ids of commits, a line each, whose parents were never fetched
// A copy that follows a server has of the server's history what it needed so far, and needs no such
// list: what is absent was never fetched. Not so what is its own, which was here once and went:
//   commits that a branch of its own stood at, by its log
//   of the last one the tree, all below it, and the files, which are what was checked out
//   rows that a drawing names as it is on the disk or staged, and no commit does: made here
// Reading compares an object with its name. Packs are also compared with their own sums, which
// reaches what no reference does.
#include "common/limits.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/work/index.hpp"
#include "verify/files.hpp"
#include "verify/object_reader.hpp"
#include "verify/parts.hpp"
#include "zev/str.h"

#include <cerrno>
#include <system_error>

namespace zev::verify {

namespace {

constexpr uint64_t kPoll = 256; // objects between two looks at the user's break
constexpr int32_t kUnknown = 0; // type of an object

// An object to look at, and on whose behalf.
struct Item {
    Oid id;
    int32_t type;
    Place place;
    bool own = false; // it was here, also where a server has what else is missing
};

class Objects {
  public:
    explicit Objects(Report &report)
        : report_(report), reader_(report.repository->handle.get()),
          shared_(shared_directory(report.repository->handle.get())), store_(shared_ + u"objects/"),
          reads_all_(report.is_wanted(Z_VERIFY_OBJECTS)) {}

    Tables run(const std::vector<Tip> &tips) {
        if (!reader_.is_open()) {
            fail_git(GIT_ERROR);
            report_.stop();
            return {};
        }
        read_shallow();
        if (report_.is_partial) visit_own();
        for (const Tip &tip : tips)
            push(tip.id, kUnknown, {.path = tip.name}, is_own_reference(tip.name));
        visit_pending();
        if (reads_all_) check_store();
        if (report_.is_partial && report_.is_wanted(Z_VERIFY_TABLES)) add_own_drawings();
        return collector_.take();
    }

  private:
    void visit_pending() {
        while (!pending_.empty() && counts_one()) {
            const Item item = std::move(pending_.back());
            pending_.pop_back();
            visit(item);
        }
    }

    // False when it is to end.
    bool counts_one() {
        const uint64_t count = ++report_.counts.objects;
        if (count % kPoll == 1) report_.progress("verifying object", std::to_string(count));
        return count % kPoll ? !report_.stopped() : !report_.broken();
    }

    void read_shallow() {
        const std::string text = read_text(shared_ + u"shallow");
        Oid id;
        for (size_t at = 0; at + 40 <= text.size(); at = text.find('\n', at) + 1) {
            if (parse_id(std::string_view(text).substr(at, 40), &id)) shallow_.insert(id);
            if (text.find('\n', at) == text.npos) break;
        }
    }

    // ---- What a copy that follows a server has itself

    static bool is_own_reference(const std::string &name) {
        return name == "HEAD" || name.starts_with("refs/heads/");
    }

    // First of all: what is visited once for another's sake is not looked at again.
    void visit_own() {
        visit_files(shared_ + u"logs/refs/heads/", true,
                    [this](const std::u16string &path, const std::u16string &) {
                        read_log(read_text(path));
                    });
        git_repository *git = report_.repository->handle.get();
        git_oid head;
        git::Commit commit;
        if (git_reference_name_to_id(&head, git, "HEAD") ||
            git_commit_lookup(out(commit), git, &head))
            return git_error_clear();
        push(*git::oid(git_commit_tree_id(commit.get())), GIT_OBJECT_TREE, {{}, *git::oid(&head)},
             true);
        visit_pending();
    }

    // Lines "<hex> <hex> ...", the old and the new id.
    void read_log(std::string_view text) {
        Oid id;
        while (!text.empty()) {
            for (const size_t at : {0, 41})
                if (at < text.size() && parse_id(text.substr(at, 40), &id)) own_commits_.insert(id);
            text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
        }
    }

    // Each tracked drawing of which no commit has what is staged, or on the disk.
    void add_own_drawings() {
        IndexPtr index;
        {
            const KeptFailure kept; // one that can't be read is told with the index
            index.reset(zIndexHead(report_.repository, false));
        }
        for (size_t n = 0; index && n < git_index_entrycount(index->handle.get()); ++n) {
            const git_index_entry &entry = *git_index_get_byindex(index->handle.get(), n);
            if (!is_drawing_name(entry.path) || git_index_entry_stage(&entry)) continue;
            if (report_.broken()) return;
            add_staged(entry);
            add_on_disk(entry);
        }
    }

    void add_staged(const git_index_entry &entry) {
        const Oid id = *git::oid(&entry.id);
        if (!drawings_.contains(id) && reader_.exists(id) && reader_.read(id, true))
            add_own(entry.path, id, reader_.content());
    }

    void add_on_disk(const git_index_entry &entry) {
        struct stat status;
        const std::u16string full = full_path(report_.repository, entry.path);
        if (!os::lstat(full.c_str(), &status) || !S_ISREG(status.st_mode)) return;
        if (entry_has_stat(entry, status) ||
            static_cast<uint64_t>(status.st_size) > limits::object_form)
            return;
        const std::string bytes = read_text(full);
        Oid id;
        if (git_odb_hash(git::oid(&id), bytes.data(), bytes.size(), GIT_OBJECT_BLOB)) return;
        if (!drawings_.contains(id)) add_own(entry.path, id, bytes);
    }

    void add_own(const char *path, const Oid &id, std::string_view bytes) {
        Manifest manifest{};
        if (!zManifestRead(&manifest, bytes.data(), bytes.size())) return;
        const Finally deinit([&manifest] { zManifestDeinit(&manifest); });
        collector_.add_own({.path = path}, id, manifest);
    }

    // ---- What references lead to

    void push(const Oid &id, int32_t type, const Place &place, bool own = false) {
        if (seen_.insert(id).second) pending_.push_back({id, type, place, own});
    }

    void unreadable(const Item &item) {
        report_.lost_objects = true;
        if (report_.is_partial && !item.own && !reader_.exists(item.id)) return;
        report_.damage(item.place, "object " + hex(item.id) + ": " + reader_.reason());
    }

    bool read(const Item &item, bool keep) {
        const bool sound = reader_.read(item.id, keep);
        if (!sound) unreadable(item);
        return sound;
    }

    void visit(const Item &item) {
        const int32_t type = item.type ? item.type : reader_.type_of(item.id);
        if (!type) return unreadable(item);
        if (type == GIT_OBJECT_BLOB) return visit_file(item);
        if (!read(item, true)) return;
        if (type == GIT_OBJECT_COMMIT) visit_commit(item);
        if (type == GIT_OBJECT_TREE) visit_tree(item);
        if (type == GIT_OBJECT_TAG) push_named(reader_.content(), "object ", kUnknown, item.place);
    }

    void visit_commit(const Item &item) {
        ++report_.counts.commits;
        const Place own{{}, item.id};
        std::string_view head = reader_.content();
        head = head.substr(0, head.find("\n\n"));
        if (!head.starts_with("tree ")) report_.damage(own, "is no commit");
        const bool has_parents = !shallow_.contains(item.id);
        while (!head.empty()) {
            const std::string_view line = head.substr(0, head.find('\n'));
            head.remove_prefix(std::min(line.size() + 1, head.size()));
            if (has_parents) push_named(line, "parent ", GIT_OBJECT_COMMIT, own);
            push_named(line, "tree ", GIT_OBJECT_TREE, own);
        }
    }

    // An id in digits behind a word at the start of the text.
    void push_named(std::string_view text, std::string_view word, int32_t type,
                    const Place &place) {
        Oid id;
        if (text.starts_with(word) && parse_id(text.substr(word.size(), 40), &id))
            push(id, type, place, own_commits_.contains(id));
    }

    void visit_tree(const Item &item) {
        ++report_.counts.trees;
        std::string_view bytes = reader_.content();
        while (!bytes.empty()) {
            const size_t blank = bytes.find(' '), zero = bytes.find('\0');
            if (blank > zero || zero == bytes.npos || bytes.size() - zero < 21)
                return report_.damage(item.place, "damaged tree " + hex(item.id));
            const std::string_view mode = bytes.substr(0, blank);
            const std::string name(bytes.substr(blank + 1, zero - blank - 1));
            Oid id;
            memcpy(id.id, bytes.data() + zero + 1, sizeof id.id);
            bytes.remove_prefix(zero + 21);
            if (mode == "160000") continue; // a commit of another repository
            const std::string &above = item.place.path;
            push_entry(id, mode == "40000",
                       {above.empty() ? name : above + "/" + name, item.place.commit}, item.own);
        }
    }

    // What was seen under another name may be a drawing under this one.
    void push_entry(const Oid &id, bool is_tree, const Place &place, bool own) {
        if (is_tree) return push(id, GIT_OBJECT_TREE, place, own);
        if (!is_drawing_name(place.path)) return push(id, GIT_OBJECT_BLOB, place, own);
        seen_.insert(id);
        if (drawings_.insert(id).second) pending_.push_back({id, GIT_OBJECT_BLOB, place, own});
    }

    void visit_file(const Item &item) {
        ++report_.counts.files;
        if (is_drawing_name(item.place.path)) return visit_drawing(item);
        if (!reads_all_) return;
        if (!report_.quick())
            read(item, false);
        else if (reader_.type_of(item.id) != GIT_OBJECT_BLOB)
            unreadable(item);
    }

    void visit_drawing(const Item &item) {
        Manifest manifest{};
        if (!read(item, true)) return;
        const std::string_view bytes = reader_.content();
        if (!zManifestRead(&manifest, bytes.data(), bytes.size())) return;
        const Finally deinit([&manifest] { zManifestDeinit(&manifest); });
        collector_.add(item.place, manifest);
        ++report_.counts.drawings;
    }

    // ---- What no reference leads to

    void check_store() {
        std::vector<os::Name> names;
        if (!os::read_dir(store_.c_str(), &names))
            report_.damage({.path = "objects"}, std::generic_category().message(errno));
        for (const os::Name &name : names) {
            if (report_.broken()) return;
            if (name.text == u"." || name.text == u".." || !name.directory) continue;
            if (name.text.size() == 2) check_loose(name.text);
            if (name.text == u"pack") check_packs(store_ + u"pack/");
            if (name.text == u"info") check_sums(store_ + u"info/");
        }
    }

    void check_loose(const std::u16string &prefix) {
        std::vector<os::Name> names;
        os::read_dir((store_ + prefix).c_str(), &names);
        for (const os::Name &name : names) {
            Oid id;
            if (!parse_id(to_utf8(prefix + name.text), &id) || seen_.contains(id)) continue;
            if (!counts_one()) return;
            const Item item{id, kUnknown, {}};
            if (!report_.quick())
                read(item, false);
            else if (!reader_.type_of(id))
                unreadable(item);
        }
    }

    void check_packs(const std::u16string &directory) {
        visit_files(directory, false, [&](const std::u16string &path, const std::u16string &name) {
            if (!name.ends_with(u".idx")) return;
            if (!exists(path.substr(0, path.size() - 4) + u".pack"))
                report_.damage({.path = to_utf8(name)}, "has no pack");
        });
        check_sums(directory);
    }

    static bool ends_in_sum(const std::u16string &path) {
        const std::u16string_view name = std::u16string_view(path).substr(path.rfind(u'/') + 1);
        if (name.starts_with(u"tmp_")) return false;
        for (const std::u16string_view end :
             {u".pack", u".idx", u".rev", u".bitmap", u".mtimes", u".graph"})
            if (name.ends_with(end)) return true;
        return name == u"commit-graph" || name == u"multi-pack-index";
    }

    bool has_sum(const std::u16string &path) const {
        struct stat status;
        if (!report_.quick()) return has_own_sum(path);
        return os::stat(path.c_str(), &status) && status.st_size >= 20;
    }

    void check_sums(const std::u16string &directory) {
        visit_files(directory, true, [this](const std::u16string &path, const std::u16string &) {
            if (!ends_in_sum(path) || report_.broken() || has_sum(path)) return;
            report_.damage({.path = to_utf8(path.substr(path.rfind(u'/') + 1))},
                           "is damaged: it has another sum than it says");
        });
    }

    Report &report_;
    ObjectReader reader_;
    const std::u16string shared_, store_;
    const bool reads_all_;
    std::vector<Item> pending_;
    Ids seen_, drawings_, shallow_, own_commits_;
    KeyCollector collector_;
};

} // namespace

bool is_in_a_tree(git_repository *repository, const Oid &file) {
    struct Search {
        git_repository *repository;
        git_odb *odb;
        const git_oid *wanted;
    };
    git::Odb odb;
    if (git_repository_odb(out(odb), repository)) return git_error_clear(), false;
    Search search{repository, odb.get(), git::oid(&file)};
    const auto look = [](const git_oid *id, void *context) {
        const auto &in = *static_cast<Search *>(context);
        size_t size = 0;
        git_object_t type = GIT_OBJECT_INVALID;
        git::Tree tree;
        if (git_odb_read_header(&size, &type, in.odb, id) || type != GIT_OBJECT_TREE ||
            git_tree_lookup(out(tree), in.repository, id))
            return 0;
        return git_tree_entry_byid(tree.get(), in.wanted) ? 1 : 0;
    };
    const bool found = git_odb_foreach(odb.get(), look, &search) == 1;
    return git_error_clear(), found;
}

Tables check_objects(Report &report, const std::vector<Tip> &tips) {
    if (!report.is_wanted(Z_VERIFY_OBJECTS | Z_VERIFY_TABLES)) return {};
    return Objects(report).run(tips);
}

} // namespace zev::verify
