// verify: everything that the references reach can be read, and every key that a committed
// drawing names has its row.
//
// Objects are read raw and once each, commits and trees in the form that git gives them:
//   commit   lines "tree <hex>", "parent <hex>" (any number), others, an empty line, the message
//   tree     entries of mode in octal digits, blank, name, zero byte, 20 bytes of id
//   tag      "object <hex>" comes first

#include "verbs.hpp"

#include "dxf/rows.hpp"

#include <algorithm>
#include <cstring>
#include <map>
#include <unordered_set>

namespace host {

namespace {

struct OidHash {
    size_t operator()(const Oid &id) const {
        size_t hash;
        memcpy(&hash, id.id, sizeof hash);
        return hash;
    }
};
struct OidEqual {
    bool operator()(const Oid &a, const Oid &b) const { return !memcmp(a.id, b.id, sizeof a.id); }
};
struct OidLess {
    bool operator()(const Oid &a, const Oid &b) const {
        return memcmp(a.id, b.id, sizeof a.id) < 0;
    }
};

// An object to look at, and on whose behalf.
struct Item {
    Oid id;
    std::string path;
    Oid commit{};
};

// Takes the bytes of one object, or lets those of a file pass.
struct Sink : Stream {
    explicit Sink(bool keep) : Stream{}, keep(keep) {
        read = [](Stream *, void *, uint64_t) -> uint64_t { return 0; };
        write = [](Stream *stream, const void *data, uint64_t count) -> uint64_t {
            return static_cast<Sink *>(stream)->take(static_cast<const char *>(data), count);
        };
        free = [](Stream *) {};
        eof = [](Stream *) { return true; };
        error = [](Stream *stream) { return static_cast<Sink *>(stream)->failed; };
    }
    uint64_t take(const char *data, uint64_t count) try {
        if (keep) bytes.append(data, count);
        return count;
    } catch (...) {
        return failed = true, 0;
    }

    bool keep;
    bool failed = false;
    std::string bytes;
};

class Verifier {
  public:
    Verifier(Host &host, const WorkingCopy &copy)
        : host_(host), copy_(copy), odb_(check(zOdbOpen(copy.repository()))) {}

    int run() {
        start();
        while (!pending_.empty()) {
            stop_on_break(host_.notify);
            Item item = std::move(pending_.back());
            pending_.pop_back();
            if (seen_.insert(item.id).second) visit(item);
        }
        for (auto &[table, manifests] : drawings_) verify_table(table, manifests);
        report();
        return problems_ ? kFailed : kDone;
    }

  private:
    void start() {
        bool all = zReferenceForeach(
            copy_.repository(),
            [](Reference *reference, void *context) {
                try {
                    static_cast<Verifier *>(context)->add_reference(reference);
                    return true;
                } catch (...) {
                    return false;
                }
            },
            this);
        if (!all) problem("refs", {}, "the references can't all be read");
        // HEAD may stand beside all branches.
        if (copy_.born()) push(*zCommitId(copy_.head().get()), {}, {});
    }

    void add_reference(Reference *reference) {
        std::string name = narrow(zReferenceName(reference));
        if (const Oid *id = zReferenceResolve(reference))
            push(*id, name, {});
        else
            problem(name, {}, narrow(zErrorDetail()));
    }

    void push(const Oid &id, const std::string &path, const Oid &commit) {
        pending_.push_back({id, path, commit});
    }

    void visit(const Item &item) {
        host_.out.progress("verifying object " + std::to_string(seen_.size()));
        int32_t type = zOdbType(odb_.get(), &item.id);
        if (type == Z_OBJECT_BLOB && is_drawing_name(item.path)) return visit_drawing(item);
        Sink sink(type != Z_OBJECT_BLOB);
        if (type < 0 || !zOdbRead(odb_.get(), &item.id, &sink))
            return problem(item.path, item.commit,
                           "object " + hex(&item.id) + ": " + narrow(zErrorDetail()));
        if (type == Z_OBJECT_COMMIT)
            visit_commit(item, sink.bytes);
        else if (type == Z_OBJECT_TREE)
            visit_tree(item, sink.bytes);
        else if (type == Z_OBJECT_TAG)
            push_named(sink.bytes, "object ", item);
        else
            ++files_;
    }

    void visit_commit(const Item &item, const std::string &bytes) {
        ++commits_;
        Item of = item;
        of.commit = item.id;
        of.path.clear();
        std::string_view head(bytes);
        head = head.substr(0, head.find("\n\n"));
        while (!head.empty()) {
            std::string_view line = head.substr(0, head.find('\n'));
            head.remove_prefix(std::min(line.size() + 1, head.size()));
            push_named(line, "parent ", item);
            push_named(line, "tree ", of);
        }
    }

    // An id in digits behind a word at the start of the text.
    void push_named(std::string_view text, std::string_view word, const Item &of) {
        Oid id;
        if (!text.starts_with(word)) return;
        std::string digits(text.substr(word.size(), 40));
        if (zOidFromStr(&id, wide(digits).c_str())) push(id, of.path, of.commit);
    }

    void visit_tree(const Item &item, std::string_view bytes) {
        ++trees_;
        while (!bytes.empty()) {
            size_t blank = bytes.find(' '), zero = bytes.find('\0');
            if (blank > zero || zero == bytes.npos || bytes.size() - zero < 21)
                return problem(item.path, item.commit, "damaged tree " + hex(&item.id));
            std::string_view mode = bytes.substr(0, blank);
            std::string name(bytes.substr(blank + 1, zero - blank - 1));
            Oid id;
            memcpy(id.id, bytes.data() + zero + 1, sizeof id.id);
            bytes.remove_prefix(zero + 21);
            if (mode == "160000") continue; // a commit of another repository
            push(id, item.path.empty() ? name : item.path + "/" + name, item.commit);
        }
    }

    // Drawings are put off, so that each table is opened once.
    void visit_drawing(const Item &item) {
        ++files_;
        TempFile file;
        OwnedDrawing drawing = load(item, file);
        if (!drawing) return;
        drawings_[*zDrawingTableId(drawing.get())].push_back(item);
    }

    OwnedDrawing load(const Item &item, const TempFile &file) {
        OwnedStream stream(check(zFileStream(file.path().c_str(), u"wb")));
        bool read = zOdbRead(odb_.get(), &item.id, stream.get());
        stream.reset();
        if (!read) {
            problem(item.path, item.commit, narrow(zErrorDetail()));
            return {};
        }
        return OwnedDrawing(zDrawingRead(file.path().c_str())); // only the name says drawing
    }

    // Keys of one version that earlier ones didn't have are looked for; tables keep every row.
    void verify_table(const Oid &id, const std::vector<Item> &manifests) {
        OwnedTable table;
        try {
            table = dxf::open_table(copy_.repository(), &id, hex(&id));
        } catch (const Failed &failed) {
            if (failed.error_class != kNotFound) throw;
        }
        std::vector<DrawingKey> known;
        TempFile file;
        for (const Item &item : manifests) {
            ++versions_;
            host_.out.progress("verifying " + item.path);
            OwnedDrawing drawing = load(item, file);
            if (!drawing) continue;
            if (!table)
                problem(item.path, item.commit, "table " + hex(&id) + " is missing");
            else
                verify_keys(table.get(), list_keys(drawing.get()), known, item);
        }
    }

    void verify_keys(Table *table, const std::vector<DrawingKey> &keys,
                     std::vector<DrawingKey> &known, const Item &item) {
        std::vector<DrawingKey> fresh, all;
        std::set_difference(keys.begin(), keys.end(), known.begin(), known.end(),
                            std::back_inserter(fresh), dxf::before);
        keys_ += fresh.size();
        std::vector<bool> there(fresh.size());
        dxf::read_rows(table, fresh, host_.notify,
                       [&](size_t place, std::string_view) { there[place] = true; });
        std::vector<DrawingKey> found;
        for (size_t i = 0; i < fresh.size(); ++i)
            if (there[i]) found.push_back(fresh[i]);
        if (found.size() < fresh.size())
            problem(item.path, item.commit,
                    std::to_string(fresh.size() - found.size()) + " of " +
                        std::to_string(keys.size()) + " blocks are missing from table " +
                        hex(zTableId(table)));
        std::merge(known.begin(), known.end(), found.begin(), found.end(), std::back_inserter(all),
                   dxf::before);
        known.swap(all);
    }

    static std::vector<DrawingKey> list_keys(Drawing *drawing) {
        std::vector<DrawingKey> keys;
        for (DrawingKey *key :
             {zDrawingHeader(drawing), zDrawingSummary(drawing), zDrawingDS(drawing)})
            if (key->tag || key->object) keys.push_back(*key);
        if (zDrawingHasVba(drawing)) keys.push_back(*zDrawingVbaProject(drawing));
        for (uint64_t i = 0, n = zDrawingClassCount(drawing); i < n; ++i)
            keys.push_back(*zDrawingClassGetAt(drawing, i));
        for (uint64_t i = 0, n = zDrawingObjectCount(drawing); i < n; ++i)
            keys.push_back(*zDrawingObjectGetAt(drawing, i));
        std::sort(keys.begin(), keys.end(), dxf::before);
        return keys;
    }

    void problem(const std::string &path, const Oid &commit, const std::string &what) {
        ++problems_;
        bool known = !zOidIsZero(&commit);
        std::string place = path;
        if (known) place += (path.empty() ? "commit " : " in commit ") + hex(&commit).substr(0, 8);
        host_.out.line(host_.out.paint(Colour::red, "damaged") + "  " +
                       (place.empty() ? "" : place + ": ") + what);
        Record record("problem");
        record.set(u"path", path).set(u"message", what);
        if (known) record.set(u"commit", &commit);
        host_.out.record(record);
    }

    void report() {
        auto number = [](uint64_t value) { return std::to_string(value); };
        host_.out.line(number(commits_) + " commits, " + number(trees_) + " trees, " +
                       number(files_) + " files, " + number(versions_) + " versions of drawings, " +
                       number(keys_) +
                       " blocks: " + (problems_ ? number(problems_) + " problems" : "all well"));
        host_.out.record(Record("summary")
                             .set(u"commits", commits_)
                             .set(u"trees", trees_)
                             .set(u"files", files_)
                             .set(u"drawings", versions_)
                             .set(u"blocks", keys_)
                             .set(u"problems", problems_));
    }

    Host &host_;
    const WorkingCopy &copy_;
    OwnedOdb odb_;
    std::vector<Item> pending_;
    std::unordered_set<Oid, OidHash, OidEqual> seen_;
    std::map<Oid, std::vector<Item>, OidLess> drawings_; // by table
    uint64_t commits_ = 0, trees_ = 0, files_ = 0, versions_ = 0, keys_ = 0, problems_ = 0;
};

} // namespace

int verify(Host &host) {
    WorkingCopy copy;
    return Verifier(host, copy).run();
}

} // namespace host
