// Import: a DXF file is cut into parts, each held against the former version; what differs goes
// into the table, and the manifest, written last, names it all. Where the former bytes stay, the
// layout tells what the file had in their place.

#include "dxf/as_imported.hpp"
#include "dxf/carry.hpp"
#include "dxf/content.hpp"
#include "dxf/drawing.hpp"
#include "dxf/incoming.hpp"
#include "dxf/keep.hpp"
#include "dxf/layout.hpp"
#include "dxf/normal.hpp"
#include "dxf/numbers.hpp"
#include "dxf/rows.hpp"
#include "dxf/saved.hpp"
#include "dxf/small_picture.hpp"
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
constexpr uint64_t kBlocks[] = {kHeaderNumber, kSummaryNumber, kLayoutNumber};

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
            incoming_.read(request_.source, request_.name);
            summary_ = summarize(document_);
            if (!zPathFileExists(request_.drawing.c_str())) picture_.begin();
        });
        read_former();
        reading.get();
        blocks_[0] = incoming_.header;
        own_table();
        keep_unchanged();
        keep_more();
        make_layout();
        if (is_saved_only()) return result_;
        stamp_others();
        if (!rows_.empty()) picture_.begin();
        write_rows(table_.get(), rows_, request_.notify);
        write_manifest();
        fresh_ = false;
        return result_;
    }

  private:
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

    // Keys of the former version

    // In table order.
    void list_formers() {
        Drawing *drawing = former_.get();
        formers_ = {{*zDrawingHeader(drawing), 0},
                    {*zDrawingSummary(drawing), 0},
                    {*zDrawingDS(drawing), 0}};
        uint64_t classes = zDrawingClassCount(drawing);
        former_objects_ = zDrawingObjectCount(drawing);
        formers_.reserve(formers_.size() + classes + former_objects_);
        for (uint64_t i = 0; i < classes; ++i)
            formers_.push_back({*zDrawingClassGetAt(drawing, i), i});
        for (uint64_t i = 0; i < former_objects_; ++i)
            formers_.push_back({*zDrawingObjectGetAt(drawing, i), i});
        auto order = [](const Former &a, const Former &b) { return before(a.key, b.key); };
        std::sort(formers_.begin(), formers_.end(), order);
    }

    // One pass over the former rows decides every key. Which object is meant is known ahead, so
    // that one whose row is gone counts as modified.
    void keep_unchanged() {
        if (!former_) return;
        std::vector<DrawingKey> keys;
        keys.reserve(formers_.size());
        for (Former &former : formers_) {
            keys.push_back(former.key);
            uint64_t number = former.key.object;
            if (is_own(number)) next_number_ = std::max(next_number_, number + 1);
            former.item = item_of(former);
            if (former.item) former.item->known = true;
        }
        read_rows(
            table_.get(), {*zDrawingDS(former_.get())}, request_.notify,
            [&](size_t, std::string_view layout) { has_kept_ = !differences_in(layout).empty(); });
        read_rows(table_.get(), keys, request_.notify,
                  [&](size_t i, std::string_view value) { take_row(formers_[i], value); });
    }

    bool may_keep() const {
        return request_.match != Match::exact && request_.match != Match::handle;
    }

    // Bytes that are the file's are held there; others only where they may be kept.
    void take_row(Former &former, std::string_view value) {
        if (is_own(former.key.object)) former.item = incoming_.take_same(value);
        Item *item = former.item;
        if (item == &blocks_[1]) {
            former_summary_ = {former.key, std::string(value)};
        } else if (item && item->value == value) {
            item->key = former.key;
            former.hold(item->value);
        } else {
            const bool is_change = !has_kept_ && item != &blocks_[0] && item != &blocks_[2];
            if (is_change) picture_.begin(); // takes as long as the rest
            if (may_keep() || item == &blocks_[0] || item == &blocks_[2])
                former.hold(arena_.copy(value));
            if (!item) former.is_drawn = is_drawn(value);
        }
    }

    // Nothing for a record without handle, which is found by content.
    Item *item_of(const Former &former) {
        uint64_t number = former.key.object;
        if (number < kFirstNumber) return incoming_.by_handle(number);
        for (size_t i = 0; i < blocks_.size(); ++i)
            if (number == kBlocks[i]) return &blocks_[i];
        bool is_class = former.place < symbols_.size() && number == class_number(former.place);
        return is_class ? &symbols_[former.place] : nullptr;
    }

    // What says the same in other bytes

    void keep_more() {
        result_.match = Match::exact;
        for (Former &former : formers_)
            if (is_object(former)) former_list_.push_back(&former);
        const auto place = [](const Former *a, const Former *b) { return a->place < b->place; };
        std::sort(former_list_.begin(), former_list_.end(), place);
        if (!former_) return;
        Keeper keeper(objects_, former_list_, arena_);
        result_.match = keeper.run(request_.match, has_kept_);
        if (result_.match != Match::normal && result_.match != Match::content) return;
        for (Former &former : formers_) keep_class(former);
        keep_header(keeper);
        keep_literals();
    }

    static bool is_object(const Former &former) { return former.key.object < 2 * kFirstNumber; }

    void keep_class(const Former &former) {
        Item *item = former.item;
        if (!item || item->kept() || !item->part || item->part->kind != Kind::symbol) return;
        if (!former.is_held || !is_same_in_normal_form(former.value, item->value)) return;
        item->key = former.key;
        item->value = former.value;
    }

    const Former *former_block(const Item &block) const {
        for (const Former &former : formers_)
            if (former.item == &block) return &former;
        return nullptr;
    }

    void keep_header(const Keeper &keeper) {
        Item &header = blocks_[0];
        const Former *former = former_block(header);
        if (!header.part || !former) return;
        if (result_.match == Match::content) {
            const std::string text = with_free_handle(
                translated(header.part->bytes, keeper.handles(), false), keeper.highest_handle());
            if (text != header.part->bytes) header.key.tag = 0, header.value = arena_.copy(text);
        }
        if (header.kept() || !former->is_held ||
            !is_same_header(former->value, header.value, keeper.highest_handle()))
            return;
        header.key = former->key;
        header.value = former->value;
    }

    // What stands between the records, each against the one at its place.
    void keep_literals() {
        const Former *layout = former_block(blocks_[2]);
        if (!layout || !layout->is_held) return;
        std::vector<std::string_view> literals;
        LayoutVisitor visitor;
        visitor.literal = [&](std::string_view bytes) { literals.push_back(bytes); };
        visitor.header = [] {};
        visitor.symbols = visitor.objects = [](uint64_t) {};
        if (!read_layout(layout->value, zDrawingClassCount(former_.get()), former_objects_,
                         visitor))
            return;
        size_t next = 0;
        for (size_t i = 0; i < document_.parts.size() && next < literals.size(); ++i) {
            const Part &part = document_.parts[i];
            if (part.kind != Kind::literal) continue;
            const std::string_view former = literals[next++];
            if (former != part.bytes && is_same_literal(former, part.bytes))
                kept_literals_.emplace(i, former);
        }
    }

    bool keeps_bytes() const {
        const auto keeps = [](const Item &item) {
            return item.part && item.value.data() != item.part->bytes.data();
        };
        return !kept_literals_.empty() || keeps(blocks_[0]) ||
               std::any_of(symbols_.begin(), symbols_.end(), keeps) ||
               std::any_of(objects_.begin(), objects_.end(), keeps);
    }

    void make_layout() {
        layout_ = keeps_bytes() ? layout_of_both() : write_layout(document_.parts);
        Item &layout = blocks_[2];
        layout.value = layout_;
        const Former *former = former_block(layout);
        if (former && former->is_held && former->value == layout_) layout.key = former->key;
    }

    std::string layout_of_both() {
        std::vector<std::string_view> kept, imported;
        for (const Part &part : document_.parts) imported.push_back(part.bytes);
        kept = imported;
        for_all([&](const Item &item) {
            if (item.part)
                kept[static_cast<size_t>(item.part - document_.parts.data())] = item.value;
        });
        for (const auto &[place, bytes] : kept_literals_) kept[place] = bytes;
        const std::string differences = write_differences(kept, imported);
        std::vector<Part> parts = document_.parts;
        for (size_t i = 0; i < parts.size(); ++i) parts[i].bytes = kept[i];
        return write_layout(parts, differences);
    }

    // Is it the file of the last import, but for the marks of a program that saved it again? Then
    // there is nothing to make a version of.
    bool is_saved_only() {
        Content before;
        if (request_.match == Match::exact || !former_ || is_all_kept()) return false;
        if (!content_before(before)) return false;
        if (!differs_by_marks(before, document_)) return false;
        result_.objects = result_.unchanged = objects_.size();
        for (size_t i = 0; i < objects_.size(); ++i)
            result_.kept += former_list_[i]->value != objects_[i].part->bytes;
        return true;
    }

    bool is_all_kept() {
        bool kept = true;
        for_all([&](const Item &item) { kept &= item.kept() || &item == &blocks_[1]; });
        return kept;
    }

    // The former version, if its list is that of the file and no object has changed.
    bool content_before(Content &before) const {
        const Former *header = former_block(blocks_[0]), *layout = former_block(blocks_[2]);
        if (!header || !header->is_held || !layout || !layout->is_held) return false;
        if (former_list_.size() != objects_.size() ||
            zDrawingClassCount(former_.get()) != symbols_.size())
            return false;
        before.header = header->value;
        before.layout = layout->value;
        before.objects.reserve(objects_.size());
        for (size_t i = 0; i < objects_.size(); ++i) {
            const Former &former = *former_list_[i];
            if (!former.is_held || !differs_by_mark(former.value, objects_[i].value)) return false;
            before.objects.push_back({former.key, former.value});
        }
        before.classes.resize(symbols_.size());
        for (const Former &former : formers_)
            if (former.item && former.place < symbols_.size() &&
                former.item == &symbols_[former.place])
                before.classes[former.place] = former.value;
        return true;
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
            if (item.kept()) {
                ++result_.unchanged;
                result_.kept += item.value.data() != item.part->bytes.data();
            } else if (item.known) {
                ++result_.modified;
                result_.drawn.modified += is_drawn(item.value);
            } else {
                ++result_.added;
                result_.drawn.added += is_drawn(item.value);
            }
        }
        for (const Former &former : formers_)
            result_.drawn.removed += is_object(former) && !former.item && was_drawn(former);
        uint64_t matched = result_.unchanged + result_.modified;
        result_.removed = former_objects_ - std::min(former_objects_, matched);
    }

    // Which one has no item is known only when all are matched.
    static bool was_drawn(const Former &former) {
        return former.is_held ? is_drawn(former.value) : former.is_drawn;
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
        if (former_) carry_over(former_.get(), drawing.get());
        picture_.put(drawing.get());
        // One may have appeared since the start.
        if (request_.keep_former && zPathFileExists(request_.drawing.c_str()))
            request_.keep_former();
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

    const Import &request_;
    ImportResult result_;
    Incoming incoming_; // what it holds lends from it
    Document &document_ = incoming_.document;
    std::vector<Item> &symbols_ = incoming_.symbols, &objects_ = incoming_.objects;
    std::string layout_, summary_text_;
    host::OwnedJson summary_;
    std::pair<DrawingKey, std::string> former_summary_;
    std::array<Item, 3> blocks_;                                 // header, summary, layout
    std::unordered_map<size_t, std::string_view> kept_literals_; // by the places of their parts
    Arena arena_;                                                // former bytes, translated ones
    uint64_t next_number_ = kFirstNumber;

    host::OwnedDrawing former_; // as it stands in the work directory
    uint64_t former_objects_ = 0;
    bool has_kept_ = false; // bytes against those of the last import, which most rows differ from
    std::vector<Former> formers_;
    std::vector<Former *> former_list_; // the objects among them, in the drawing's order
    host::OwnedTable table_;
    bool fresh_ = false; // the table was made here and nothing names it yet
    std::vector<Row> rows_;
    SmallPicture picture_{request_, document_};
};

} // namespace

ImportResult import_drawing(const Import &request) { return Importer(request).run(); }

} // namespace dxf
