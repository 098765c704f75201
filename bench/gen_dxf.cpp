// gen_dxf FILE [OBJECTS [BYTES [SEED [CHANGED [EDIT]]]]]: writes a DXF drawing.
//
// OBJECTS entities (100,000) of about BYTES each (500), all numbers drawn from SEED (1). With
// CHANGED, in hundredths of a percent, that share of the entities gets other coordinates, drawn
// anew in each of EDIT (1) edits, one on top of the other: the same seed with CHANGED 100 and the
// next EDIT is the next version of the same drawing, in which one object of a hundred is not the
// same. Equal arguments give equal bytes everywhere.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

struct Settings {
    uint64_t objects = 100000, bytes = 500, seed = 1, changed = 0, edit = 1;
};

// splitmix64: the whole sequence is a function of the state, with no table.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        uint64_t z = state_ += 0x9E3779B97F4A7C15;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
        z = (z ^ z >> 27) * 0x94D049BB133111EB;
        return z ^ z >> 31;
    }
    uint64_t below(uint64_t bound) { return next() % bound; }

  private:
    uint64_t state_;
};

class Writer {
  public:
    explicit Writer(FILE *file) : file_(file) {}

    void text(int code, const std::string &value) {
        char line[16];
        out_.append(line, static_cast<size_t>(snprintf(line, sizeof line, "%3d\n", code)));
        out_ += value;
        out_ += '\n';
        if (out_.size() > 1 << 20) flush();
    }
    void handle(int code, uint64_t number) {
        char digits[20];
        snprintf(digits, sizeof digits, "%llX", static_cast<unsigned long long>(number));
        text(code, digits);
    }
    void number(int code, uint64_t value) { text(code, std::to_string(value)); }
    void real(int code, Random &random) {
        char digits[40];
        snprintf(digits, sizeof digits, "%llu.%06llu",
                 static_cast<unsigned long long>(random.below(1000)),
                 static_cast<unsigned long long>(random.below(1000000)));
        text(code, digits);
    }
    void section(const char *name) {
        text(0, "SECTION");
        text(2, name);
    }
    uint64_t size() const { return written_ + out_.size(); }
    bool flush() {
        written_ += out_.size();
        bool done = fwrite(out_.data(), 1, out_.size(), file_) == out_.size();
        out_.clear();
        return ok_ &= done;
    }

  private:
    FILE *file_;
    std::string out_;
    uint64_t written_ = 0;
    bool ok_ = true;
};

void header(Writer &out) {
    out.section("HEADER");
    out.text(9, "$ACADVER");
    out.text(1, "AC1015");
    for (const char *name : {"$EXTMIN", "$EXTMAX"}) {
        out.text(9, name);
        out.text(10, name[6] == 'I' ? "0.0" : "1000.0");
        out.text(20, name[6] == 'I' ? "0.0" : "1000.0");
        out.text(30, "0.0");
    }
    out.text(0, "ENDSEC");
    out.section("CLASSES");
    for (int i = 0; i < 3; ++i) {
        out.text(0, "CLASS");
        out.text(1, "KIND" + std::to_string(i));
        out.text(2, "ZvKind" + std::to_string(i));
        out.number(280, 0);
    }
    out.text(0, "ENDSEC");
}

constexpr uint64_t kLayers = 40;
constexpr uint64_t kFirstEntity = 0x1000;

void tables(Writer &out) {
    out.section("TABLES");
    out.text(0, "TABLE");
    out.text(2, "LAYER");
    out.handle(5, 2);
    out.number(70, kLayers);
    for (uint64_t i = 0; i < kLayers; ++i) {
        out.text(0, "LAYER");
        out.handle(5, 0x100 + i);
        out.text(100, "AcDbSymbolTableRecord");
        out.text(100, "AcDbLayerTableRecord");
        out.text(2, "LAYER-" + std::to_string(i));
        out.number(70, 0);
        out.number(62, i % 255 + 1);
    }
    out.text(0, "ENDTAB");
    out.text(0, "ENDSEC");
    out.section("BLOCKS");
    out.text(0, "BLOCK");
    out.handle(5, 0x20);
    out.text(100, "AcDbEntity");
    out.text(100, "AcDbBlockBegin");
    out.text(2, "*Model_Space");
    out.text(0, "ENDBLK");
    out.handle(5, 0x21);
    out.text(100, "AcDbEntity");
    out.text(100, "AcDbBlockEnd");
    out.text(0, "ENDSEC");
}

void entity(Writer &out, const Settings &settings, uint64_t place) {
    struct Kind {
        const char *name, *subclass;
    };
    constexpr Kind kinds[] = {{"LINE", "AcDbLine"},
                              {"CIRCLE", "AcDbCircle"},
                              {"ARC", "AcDbCircle"},
                              {"TEXT", "AcDbText"},
                              {"LWPOLYLINE", "AcDbPolyline"}};
    Random random(settings.seed * 1000003 + place);
    const auto [kind, subclass] = kinds[random.below(5)];
    uint64_t layer = random.below(kLayers);
    for (uint64_t i = 1; i <= settings.edit; ++i) {
        Random edit(settings.seed * 7919 + i * 104729 + place * 2);
        if (edit.below(10000) < settings.changed) random = edit;
    }
    uint64_t end = out.size() + settings.bytes;
    out.text(0, kind);
    out.handle(5, kFirstEntity + place);
    out.handle(330, 0x20);
    out.text(100, "AcDbEntity");
    out.text(8, "LAYER-" + std::to_string(layer));
    out.text(100, subclass);
    for (int code = 10; code <= 30; code += 10) out.real(code, random);
    if (kind[0] == 'T') out.text(1, "Room " + std::to_string(random.below(1000)));
    out.real(40, random);
    while (out.size() + 30 < end) { // vertices up to the size asked for
        out.real(10, random);
        out.real(20, random);
    }
}

void write(Writer &out, const Settings &settings) {
    header(out);
    tables(out);
    out.section("ENTITIES");
    for (uint64_t i = 0; i < settings.objects; ++i) entity(out, settings, i);
    out.text(0, "ENDSEC");
    out.section("OBJECTS");
    out.text(0, "DICTIONARY");
    out.handle(5, 0xC);
    out.text(0, "ENDSEC");
    out.text(0, "EOF");
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: gen_dxf FILE [OBJECTS [BYTES [SEED [CHANGED [EDIT]]]]]\n");
        return 2;
    }
    Settings settings;
    uint64_t *fields[] = {&settings.objects, &settings.bytes, &settings.seed, &settings.changed,
                          &settings.edit};
    for (int i = 2; i < argc && i < 7; ++i) *fields[i - 2] = strtoull(argv[i], nullptr, 10);
    FILE *file = fopen(argv[1], "wb");
    if (!file) return perror(argv[1]), 1;
    Writer out(file);
    write(out, settings);
    if (!out.flush() || fclose(file)) return perror(argv[1]), 1;
    return 0;
}
