// Import: a DXF file is cut into parts, each held against the former version; what differs goes
// into the table, and the manifest, written last, names it all.

#include "dxf/drawing.hpp"
#include "dxf/layout.hpp"
#include "dxf/rows.hpp"
#include "dxf/summary.hpp"
#include "dxf/tag.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <future>
#include <unordered_map>

namespace dxf {

namespace {

// Object numbers of the header, the summary and the layout.
constexpr uint64_t kBlocks[] = {static_cast<uint64_t>(-1), static_cast<uint64_t>(-2),
                                static_cast<uint64_t>(-3)};
constexpr uint64_t class_number(uint64_t place) { return static_cast<uint64_t>(-101) - place; }

// A block of the new version, in search of its key.
struct Item {
    std::string_view value;
    DrawingKey key{};     // tag 0 until the former key or a new tag is found
    bool known = false;   // the former version has an object of this handle
    Item *same = nullptr; // next one without handle and with the same content
    bool kept() const { return key.tag != 0; }
};

// A key of the former version; the place of its class or object in the list.
struct Former {
    DrawingKey key;
    uint64_t place;
    Item *item = nullptr; // that takes the key over if its content is the same
};

// A number that was given to a record without handle.
bool is_own(uint64_t number) { return number >= kFirstNumber && number < 2 * kFirstNumber; }

bool same_key(const DrawingKey &a, const DrawingKey &b) {
    return a.tag == b.tag && a.object == b.object;
}

class Importer {
  public:
    explicit Importer(const Import &request) : request_(request) {}
    // A drawing may stand although writing it failed: at the very last, when its name is synced.
    ~Importer() {
        if (fresh_ && !zPathFileExists(request_.drawing.c_str())) drop_table();
    }

    // The file is cut while the table opens, each about a third of the time. Nothing is written
    // before the whole file has proved to be DXF.
    ImportResult run() {
        auto reading = std::async(std::launch::async, [this] {
            read_source();
            name_objects();
        });
        read_former();
        reading.get();
        own_table();
        keep_unchanged();
        stamp_others();
        write_rows(table_.get(), rows_, request_.notify);
        write_manifest();
        fresh_ = false;
        return result_;
    }

  private:
    // The file

    void read_source() {
        host::OwnedFile file(host::check(zFileOpen(request_.source.c_str(), u"rb"), request_.name));
        uint64_t size = zFileSize(file.get());
        buffer_.reset(new char[size + 1]);
        size = zFileRead(file.get(), buffer_.get(), size);
        if (zFileError(file.get())) host::fail_raised(request_.name);
        document_ = split({buffer_.get(), size}, request_.name);
        summary_ = summarize(document_);
        layout_ = write_layout(document_.parts);
        blocks_[2].value = layout_;
        objects_.reserve(document_.parts.size());
        for (const Part &part : document_.parts) {
            if (part.kind == Kind::header) blocks_[0].value = part.bytes;
            if (part.kind == Kind::symbol) symbols_.push_back({part.bytes});
            if (part.kind == Kind::object) objects_.push_back({part.bytes});
        }
    }

    // The drawing and its table

    void read_former() {
        const zwchar *path = request_.drawing.c_str();
        if (!zPathFileExists(path)) return;
        zRaiseError(0, 0, nullptr, nullptr); // a bad format raises nothing
        former_.reset(zDrawingRead(path));
        if (!former_ && zErrorClass()) host::fail_raised(request_.path);
        if (!former_)
            throw host::Failed(host::kExists,
                               host::say("%s: the file is there and is no drawing", request_.path));
        if (request_.fetch_rows) request_.fetch_rows(former_.get());
        const Oid *id = zDrawingTableId(former_.get());
        if (zPathDirExists(table_path(request_.repository, id).c_str())) open_table();
        list_formers();
    }

    void open_table() {
        const Oid *id = zDrawingTableId(former_.get());
        table_.reset(host::check(zTableByid(request_.repository, id), request_.path));
    }

    // Makes the table if it isn't there. A copied drawing still names the table of its source,
    // and gets one of its own.
    void own_table() {
        if (table_) {
            if (is_owner() || take_over()) return;
            table_.reset();
            zRaiseError(0, 0, nullptr, nullptr);
            zDrawingConfirmTableBackwardRef(request_.drawing.c_str());
            const host::Failed failed(zErrorClass(), zErrorCode(), host::narrow(zErrorDetail()));
            read_former();
            if (!table_) open_table();
            if (failed.error_class && !is_owner()) throw failed;
            return;
        }
        if (former_) {
            open_table();
        } else {
            table_.reset(host::check(zTableRand(request_.repository)));
            fresh_ = true;
        }
        const zwchar *base = host::check(zRepositoryWorkdir(request_.repository));
        host::check(zDrawingTableBackwardRefSet(table_.get(), base, request_.drawing.c_str()));
    }

    bool is_owner() {
        return zStrcasesameA(table_owner(table_.get()).c_str(), request_.path.c_str());
    }

    // A drawing that was renamed elsewhere still has the table of its former name here; rows that
    // came from a server may come without a name.
    bool take_over() {
        const std::string owner = table_owner(table_.get());
        const zwchar *base = host::check(zRepositoryWorkdir(request_.repository));
        if (!owner.empty() && zPathExists((base + host::wide(owner)).c_str())) return false;
        return zDrawingTableBackwardRefSet(table_.get(), base, request_.drawing.c_str());
    }

    // Undoes zTableRand; the directory above goes if it was made for this table.
    void drop_table() {
        std::u16string path = table_path(request_.repository, zTableId(table_.get()));
        table_.reset();
        zDirRemove(path.c_str(), true, true);
        path.resize(path.rfind(u'/'));
        zDirRemove(path.c_str(), false, false);
    }

    // Numbers

    // Of several records with one handle the first has it. All others without are chained by
    // content, in file order.
    void name_objects() {
        size_t next = 0;
        std::vector<Item *> nameless;
        for (const Part &part : document_.parts) {
            if (part.kind != Kind::object) continue;
            Item *item = &objects_[next++];
            item->key.object = part.handle;
            if (part.handle)
                named_.push_back(item);
            else
                nameless.push_back(item);
        }
        auto by_handle = [](Item *a, Item *b) { return a->key.object < b->key.object; };
        std::stable_sort(named_.begin(), named_.end(), by_handle);
        auto same = [](Item *a, Item *b) { return a->key.object == b->key.object; };
        for (size_t i = 1; i < named_.size(); ++i)
            if (same(named_[i - 1], named_[i])) nameless.push_back(named_[i]);
        named_.erase(std::unique(named_.begin(), named_.end(), same), named_.end());
        std::sort(nameless.begin(), nameless.end());
        chain(nameless);
    }

    void chain(const std::vector<Item *> &nameless) {
        for (auto at = nameless.rbegin(); at != nameless.rend(); ++at) {
            (*at)->key.object = 0;
            Item *&first = by_content_[(*at)->value];
            (*at)->same = first;
            first = *at;
        }
    }

    Item *by_handle(uint64_t handle) {
        auto below = [](Item *item, uint64_t number) { return item->key.object < number; };
        auto at = std::lower_bound(named_.begin(), named_.end(), handle, below);
        return at != named_.end() && (*at)->key.object == handle ? *at : nullptr;
    }

    // Keys of the former version

    // In table order.
    void list_formers() {
        Drawing *drawing = former_.get();
        formers_ = {{*zDrawingHeader(drawing), 0, nullptr},
                    {*zDrawingSummary(drawing), 0, nullptr},
                    {*zDrawingDS(drawing), 0, nullptr}};
        uint64_t classes = zDrawingClassCount(drawing);
        former_objects_ = zDrawingObjectCount(drawing);
        formers_.reserve(formers_.size() + classes + former_objects_);
        for (uint64_t i = 0; i < classes; ++i)
            formers_.push_back({*zDrawingClassGetAt(drawing, i), i, nullptr});
        for (uint64_t i = 0; i < former_objects_; ++i)
            formers_.push_back({*zDrawingObjectGetAt(drawing, i), i, nullptr});
        auto order = [](const Former &a, const Former &b) { return before(a.key, b.key); };
        std::sort(formers_.begin(), formers_.end(), order);
    }

    // One pass over the former rows decides every key. Which object is meant is known ahead, so
    // that one whose row is gone counts as modified.
    void keep_unchanged() {
        std::vector<DrawingKey> keys;
        keys.reserve(formers_.size());
        for (Former &former : formers_) {
            keys.push_back(former.key);
            uint64_t number = former.key.object;
            if (is_own(number)) next_number_ = std::max(next_number_, number + 1);
            former.item = item_of(former);
            if (former.item) former.item->known = true;
        }
        read_rows(table_.get(), keys, request_.notify, [&](size_t i, std::string_view value) {
            Item *item = is_own(formers_[i].key.object) ? take_same(value) : formers_[i].item;
            if (item == &blocks_[1])
                former_summary_ = {formers_[i].key, std::string(value)};
            else if (item && item->value == value)
                item->key = formers_[i].key;
        });
    }

    // Nothing for a record without handle, which is found by content.
    Item *item_of(const Former &former) {
        uint64_t number = former.key.object;
        if (number < kFirstNumber) return by_handle(number);
        for (size_t i = 0; i < blocks_.size(); ++i)
            if (number == kBlocks[i]) return &blocks_[i];
        bool is_class = former.place < symbols_.size() && number == class_number(former.place);
        return is_class ? &symbols_[former.place] : nullptr;
    }

    // The next record without handle and with this content.
    Item *take_same(std::string_view value) {
        auto at = by_content_.find(value);
        if (at == by_content_.end() || !at->second) return nullptr;
        Item *item = at->second;
        at->second = item->same;
        item->known = true;
        return item;
    }

    // New keys

    void stamp_others() {
        for (size_t i = 0; i < blocks_.size(); ++i) blocks_[i].key.object = kBlocks[i];
        for (size_t i = 0; i < symbols_.size(); ++i) symbols_[i].key.object = class_number(i);
        for (Item &item : objects_)
            if (!item.kept() && !item.key.object) item.key.object = next_number_++;
        count_objects();
        if (complete_summary()) return;
        uint64_t tag = raise_tag();
        rows_.reserve(objects_.size() - result_.unchanged + symbols_.size() + blocks_.size());
        for_all([&](Item &item) {
            if (item.kept()) return;
            item.key.tag = tag;
            rows_.push_back({item.key, item.value});
            result_.bytes += item.value.size();
        });
        result_.rows = rows_.size();
        // In key order the store's files do not overlap, and it never has to merge them.
        const auto order = [](const Row &a, const Row &b) { return before(a.key, b.key); };
        if (!std::is_sorted(rows_.begin(), rows_.end(), order))
            std::sort(rows_.begin(), rows_.end(), order);
    }

    // The summary tells what all others come to. True if nothing has changed; a drawing without a
    // digest does not get one for that.
    bool complete_summary() {
        DrawingDigest digest{};
        bool kept = true;
        for_all([&](Item &item) {
            if (&item == &blocks_[1]) return;
            kept &= item.kept();
            zDrawingDigestAddRow(&digest, item.key.object, item.value.data(), item.value.size());
        });
        Item &summary = blocks_[1];
        summary_text_ = summary_text(summary_.get());
        if (!kept || summary_text_ != former_summary_.second) {
            put_digest(summary_.get(), digest);
            summary_text_ = summary_text(summary_.get());
        }
        summary.value = summary_text_;
        if (summary.value == former_summary_.second) summary.key = former_summary_.first;
        return kept && summary.kept();
    }

    template <class F> void for_all(F visit) {
        for (Item &item : objects_) visit(item);
        for (Item &item : symbols_) visit(item);
        for (Item &item : blocks_) visit(item);
    }

    void count_objects() {
        result_.objects = objects_.size();
        for (Item &item : objects_) {
            if (item.kept())
                ++result_.unchanged;
            else if (item.known)
                ++result_.modified;
            else
                ++result_.added;
        }
        uint64_t matched = result_.unchanged + result_.modified;
        result_.removed = former_objects_ - std::min(former_objects_, matched);
    }

    uint64_t raise_tag() {
        if (fresh_) return zTableTagGet(table_.get());
        return dxf::raise_tag(table_.get(), {former_.get(), request_.committed}, request_.ask_tag);
    }

    // The manifest

    void write_manifest() {
        if (former_ && rows_.empty() && is_former()) return;
        host::OwnedDrawing drawing(host::check(zDrawingNew(nullptr, nullptr)));
        host::check(zDrawingTableIdSet(drawing.get(), zTableId(table_.get())));
        *host::check(zDrawingHeader(drawing.get())) = blocks_[0].key;
        *host::check(zDrawingSummary(drawing.get())) = blocks_[1].key;
        *host::check(zDrawingDS(drawing.get())) = blocks_[2].key;
        zDrawingVbaProjectSet(drawing.get(), table_.get(), nullptr, 0);
        for (Item &item : symbols_)
            *host::check(zDrawingClassAdd(drawing.get(), table_.get())) = item.key;
        for (Item &item : objects_)
            *host::check(zDrawingObjectAdd(drawing.get(), table_.get(), item.key.object)) =
                item.key;
        if (former_) carry_over(drawing.get());
        if (former_ && request_.keep_former) request_.keep_former();
        host::check(zDrawingWrite(drawing.get(), request_.drawing.c_str()));
        result_.written = true;
    }

    bool is_former() {
        Drawing *drawing = former_.get();
        if (former_objects_ != objects_.size() || zDrawingClassCount(drawing) != symbols_.size())
            return false;
        for (uint64_t i = 0; i < objects_.size(); ++i)
            if (!same_key(*zDrawingObjectGetAt(drawing, i), objects_[i].key)) return false;
        return true; // blocks and classes were compared by place
    }

    // What a DXF file doesn't hold and a host may have put into the drawing.
    void carry_over(Drawing *drawing) {
        uint32_t size = 0;
        if (const void *data = zDrawingThumbnail(former_.get(), &size); data && size)
            host::check(zDrawingSetThumbnail(drawing, size, data));
        if (zDrawingHasVba(former_.get()))
            *host::check(zDrawingVbaProject(drawing)) = *zDrawingVbaProject(former_.get());
        Stream *from = host::check(zDrawingReference(former_.get(), nullptr, nullptr));
        Stream *to = host::check(zDrawingReference(drawing, nullptr, nullptr));
        char block[4096];
        while (uint64_t count = zStreamRead(from, block, sizeof block))
            if (zStreamWrite(to, block, count) != count) host::fail_raised();
    }

    const Import &request_;
    ImportResult result_;
    std::unique_ptr<char[]> buffer_; // the file; parts, items and rows lend from it
    Document document_;
    std::string layout_, summary_text_;
    host::OwnedJson summary_;
    std::pair<DrawingKey, std::string> former_summary_;
    std::array<Item, 3> blocks_; // header, summary, layout
    std::vector<Item> symbols_, objects_;
    std::vector<Item *> named_; // by handle
    std::unordered_map<std::string_view, Item *> by_content_;
    uint64_t next_number_ = kFirstNumber;

    host::OwnedDrawing former_; // as it stands in the work directory
    uint64_t former_objects_ = 0;
    std::vector<Former> formers_;
    host::OwnedTable table_;
    bool fresh_ = false; // the table was made here and nothing names it yet
    std::vector<Row> rows_;
};

} // namespace

ImportResult import_drawing(const Import &request) { return Importer(request).run(); }

} // namespace dxf
