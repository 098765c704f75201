// Export: the rows of a drawing, in the order of its layout, once they have proved to be those that
// were imported.
#include "dxf/drawing.hpp"
#include "dxf/layout.hpp"
#include "dxf/rows.hpp"
#include "dxf/summary.hpp"

#include <algorithm>
#include <numeric>

namespace dxf {

namespace {

// Rows are read in table order and given out in file order, so that they are held in between.
class Exporter {
  public:
    Exporter(Drawing *drawing, const std::string &name, const Notify *notify)
        : drawing_(drawing), name_(name), notify_(notify) {}

    void run(Table *table, const std::function<void(std::string_view)> &write) {
        list_keys();
        read(table);
        play(write);
    }

  private:
    struct Place {
        uint64_t offset = UINT64_MAX;
        uint64_t size = 0;
    };

    // Layout, header, summary, classes, objects.
    void list_keys() {
        symbols_ = zDrawingClassCount(drawing_);
        objects_ = zDrawingObjectCount(drawing_);
        keys_.reserve(kFirstClass + symbols_ + objects_);
        keys_ = {*zDrawingDS(drawing_), *zDrawingHeader(drawing_), *zDrawingSummary(drawing_)};
        for (uint64_t i = 0; i < symbols_; ++i) keys_.push_back(*zDrawingClassGetAt(drawing_, i));
        for (uint64_t i = 0; i < objects_; ++i) keys_.push_back(*zDrawingObjectGetAt(drawing_, i));
        places_.resize(keys_.size());
    }

    void read(Table *table) {
        std::vector<uint64_t> order(keys_.size());
        std::iota(order.begin(), order.end(), 0);
        std::sort(order.begin(), order.end(),
                  [&](uint64_t a, uint64_t b) { return before(keys_[a], keys_[b]); });
        std::vector<DrawingKey> sorted;
        sorted.reserve(keys_.size());
        for (uint64_t place : order) sorted.push_back(keys_[place]);
        uint64_t found = read_rows(table, sorted, notify_, [&](size_t i, std::string_view value) {
            places_[order[i]] = {bytes_.size(), value.size()};
            if (order[i] != kSummary)
                zDrawingDigestAddRow(&digest_, sorted[i].object, value.data(), value.size());
            bytes_ += value;
        });
        if (found < keys_.size())
            throw host::Failed(host::kNotFound,
                               host::say("%s: %s of its rows are missing from the table", name_,
                                         keys_.size() - found));
        const auto imported = digest_in(value(kSummary));
        if (imported && !same(*imported, digest_)) fail_mixed(name_);
    }

    void play(const std::function<void(std::string_view)> &write) {
        uint64_t symbol = kFirstClass, object = kFirstClass + symbols_;
        auto run = [&](uint64_t &next, uint64_t count) {
            for (; count; --count) write(value(next++));
        };
        LayoutVisitor visitor;
        visitor.literal = write;
        visitor.header = [&] { write(value(1)); };
        visitor.symbols = [&](uint64_t count) { run(symbol, count); };
        visitor.objects = [&](uint64_t count) { run(object, count); };
        if (!read_layout(value(0), symbols_, objects_, visitor))
            throw host::Failed(host::kOther,
                               host::say("%s: the drawing doesn't come from a DXF file", name_));
    }

    std::string_view value(uint64_t place) const {
        return std::string_view(bytes_).substr(places_[place].offset, places_[place].size);
    }

    static constexpr uint64_t kSummary = 2, kFirstClass = 3;
    Drawing *drawing_;
    const std::string &name_;
    const Notify *notify_;
    uint64_t symbols_ = 0, objects_ = 0;
    std::vector<DrawingKey> keys_;
    std::vector<Place> places_; // in bytes_, of each key's value
    std::string bytes_;
    DrawingDigest digest_{}; // of all but the summary
};

} // namespace

void export_drawing(Repository *repository, Drawing *drawing, const std::string &name,
                    const Notify *notify, const std::function<void(std::string_view)> &write) {
    host::OwnedTable table = open_table(repository, zDrawingTableId(drawing), name);
    Exporter(drawing, name, notify).run(table.get(), write);
}

} // namespace dxf
