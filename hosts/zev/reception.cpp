// The note, "zev-transfer" in the Git directory, is JSON with the verb that began, for whoever
// finds it; what counts is its time, by the clock of the file system: packs and objects that are
// younger have come since.
#include "reception.hpp"

#include "refs.hpp"
#include "server_note.hpp"

#include <array>
#include <fstream>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr const char *kNote = "zev-transfer";
constexpr uint64_t kAlone = 2u << 20;            // bytes above which an object travels alone
constexpr uint64_t kLeastStored = kAlone / 1032; // deflate makes no less of it

// Number of objects by a pack's index: the last of 256 sums behind a head of 8 bytes.
uint64_t objects_in(const fs::path &index) {
    std::array<uint8_t, 4> sum{};
    std::ifstream in(index, std::ios::binary);
    in.seekg(8 + 255 * 4);
    if (!in.read(reinterpret_cast<char *>(sum.data()), sum.size())) return 0;
    uint64_t count = 0;
    for (const uint8_t byte : sum) count = count << 8 | byte;
    return count;
}

// Calls `visit(path, size)` for each file of a directory that is not older.
template <class Visit>
void each_since(const fs::path &directory, fs::file_time_type since, Visit visit) {
    std::error_code error;
    if (fs::last_write_time(directory, error) < since || error) return;
    for (fs::directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
        std::error_code gone;
        const auto time = at->last_write_time(gone);
        const uint64_t size = gone || time < since ? 0 : at->file_size(gone);
        if (size && !gone) visit(at->path(), size);
    }
}

Stock packs_since(const fs::path &objects, fs::file_time_type since) {
    Stock stock;
    each_since(objects / "pack", since, [&](const fs::path &path, uint64_t size) {
        if (path.extension() == ".idx") stock.objects += objects_in(path);
        if (path.extension() == ".pack") stock.bytes += size;
    });
    return stock;
}

// Those that travelled alone; small ones were made here, or are a commit.
void add_alone(Stock &stock, const fs::path &directory, fs::file_time_type since) {
    const OwnedRepository repository(zRepositoryOpen(directory.u16string().c_str()));
    const OwnedOdb odb(repository ? zOdbOpen(repository.get()) : nullptr);
    const auto is_large = [&](const std::string &digits) {
        Oid id;
        return odb && zOidFromStr(&id, wide(digits).c_str()) && zOdbSize(odb.get(), &id) > kAlone;
    };
    for (unsigned upper = 0; upper < 256; ++upper) {
        char name[3];
        snprintf(name, sizeof name, "%02x", upper);
        each_since(directory / "objects" / name, since, [&](const fs::path &path, uint64_t size) {
            if (size < kLeastStored || !is_large(name + path.filename().string())) return;
            ++stock.objects;
            stock.bytes += size;
        });
    }
}

} // namespace

std::string stock_text(const Stock &stock) {
    return count_of(stock.objects, "object") + ", " + bytes_text(stock.bytes);
}

bool was_cut_short() {
    constexpr int kAnswered = 400, kUnavailable = 503;
    return zErrorClass() == kCanceled ||
           (zErrorClass() == kNetwork &&
            (zErrorCode() < kAnswered || zErrorCode() == kUnavailable));
}

// A get that was cut short has left no answer of the server's, unlike one of an empty project.
void tell_unfinished(Host &host, const WorkingCopy &copy) {
    const std::string url = copy.born() ? "" : origin_of(copy), place = copy.root().string();
    if (url.empty() || read_note(copy).seconds) return;
    host.out.warn(say("%1$s: is a copy of %2$s that has not come so far; \"zev get %2$s %1$s\" "
                      "goes on",
                      place, url));
}

Reception::Reception(Host &host, fs::path directory, const char *verb, bool filled)
    : host_(host), directory_(std::move(directory)) {
    const fs::path note = directory_ / kNote;
    std::error_code error;
    const auto time = fs::last_write_time(note, error);
    if (!error || !filled) {
        if (filled) since_ = time;
        tell_resumed();
    } else {
        std::ofstream(note) << Record().set(u"verb", verb).text() << '\n';
        const auto begun = fs::last_write_time(note, error);
        if (!error) since_ = begun;
    }
    host_.notify->set_progress_tail([this] {
        const Stock came = packs_since(directory_ / "objects", since_);
        return came.objects ? ", " + say("%s objects", grouped(came.objects)) : "";
    });
}

void Reception::tell_resumed() {
    const Stock left = stock();
    if (!left.objects) return;
    resumed_ = true;
    const std::string text =
        say("the last try was cut short; it goes on from what has come: %s", stock_text(left));
    host_.out.line(text);
    host_.out.record(Record("info").set(u"message", text));
}

Stock Reception::stock() const {
    Stock stock = packs_since(directory_ / "objects", since_);
    add_alone(stock, directory_, since_);
    return stock;
}

void Reception::fail() {
    if (!was_cut_short()) finish();
}

void Reception::finish() {
    std::error_code ignored;
    fs::remove(directory_ / kNote, ignored);
}

} // namespace host
