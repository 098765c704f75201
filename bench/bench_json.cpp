// JSON text of a listing of files: parsed into a tree (and the tree freed again), printed from it.
// Beside nlohmann's tree, and RapidJSON's with 16-bit text, which holds what ours holds. Rates in
// MB of text a second; the rounds of all take turns, so that a busy machine is one for all.
#include "bench.hpp"

#include "zev/zev.h"

#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

namespace {

constexpr int kRounds = 15;

std::string listing(uint64_t files) {
    bench::Random random(7);
    const char *kinds[] = {"unchanged", "added", "modified", "renamed"};
    std::string text = "{\"entries\":[";
    for (uint64_t i = 0; i < files; ++i) {
        char id[41] = {}, row[400];
        for (char &digit : id) digit = "0123456789abcdef"[random.below(16)];
        id[40] = 0;
        snprintf(row, sizeof row,
                 "{\"path\":\"Werk %u/Gewerk %u/Geschoss %u/Grundri\xc3\x9f %05u.dwx\","
                 "\"id\":\"%s\",\"size\":%u,\"time\":%u,\"kind\":\"%s\",\"locked\":%s,"
                 "\"scale\":%u.5,\"author\":\"M. Muster <muster@example.com>\","
                 "\"message\":\"Achsen \\\"A\\\" bis \\\"%c\\\" verschoben\"},",
                 static_cast<unsigned>(i % 7), static_cast<unsigned>(i % 13),
                 static_cast<unsigned>(i % 29), static_cast<unsigned>(i), id,
                 static_cast<unsigned>(random.below(100000000)),
                 1700000000 + static_cast<unsigned>(random.below(10000000)), kinds[random.below(4)],
                 random.below(2) ? "true" : "false", static_cast<unsigned>(random.below(500)),
                 static_cast<char>('B' + random.below(20)));
        text += row;
    }
    text.back() = ']';
    return text + "}";
}

struct Zev {
    Stream *input;
    Json *tree;

    explicit Zev(const std::string &text) : input(zMemStream(1, text.size())) {
        zStreamWrite(input, text.data(), text.size());
        zStreamRewind(input);
        tree = zJsonReadStream(input);
    }
    ~Zev() {
        zJsonFree(tree);
        zStreamFree(input);
    }
    Zev(const Zev &) = delete;
    void parse() {
        zStreamRewind(input);
        zJsonFree(zJsonReadStream(input));
    }
    void print() {
        Stream *output = zMemStream(1, 0);
        zJsonWriteStream(tree, output);
        zStreamFree(output);
    }
};

struct Nlohmann {
    const std::string &text;
    nlohmann::json tree;

    explicit Nlohmann(const std::string &listing)
        : text(listing), tree(nlohmann::json::parse(listing)) {}
    void parse() { auto parsed = nlohmann::json::parse(text); }
    void print() { auto printed = tree.dump(); }
};

struct Rapidjson {
    using Wide = rapidjson::UTF16<char16_t>;
    using Document = rapidjson::GenericDocument<Wide>;
    const std::string &text;
    Document tree;

    explicit Rapidjson(const std::string &listing) : text(listing) { parse_into(tree); }
    void parse_into(Document &document) {
        rapidjson::StringStream input(text.c_str());
        document.ParseStream<rapidjson::kParseDefaultFlags, rapidjson::UTF8<>>(input);
    }
    void parse() {
        Document document;
        parse_into(document);
    }
    void print() {
        rapidjson::StringBuffer output;
        rapidjson::Writer<rapidjson::StringBuffer, Wide> writer(output);
        tree.Accept(writer);
    }
};

void report(const char *scenario, uint64_t bytes, const double (&best)[3]) {
    double rate[3];
    for (int i = 0; i < 3; ++i) rate[i] = static_cast<double>(bytes) / best[i] / 1000;
    bench::compare(scenario, "nlohmann", "MB/s", rate[0], rate[1]);
    bench::line(scenario, "rapidjson", "MB/s", rate[2]);
}

} // namespace

int main() {
    const std::string text = listing(bench::size("ZEV_BENCH_FILES", 10000));
    if (!zGlobalInit(u"en-US", nullptr)) return 1;
    {
        Zev zev(text);
        Nlohmann nlohmann(text);
        Rapidjson rapidjson(text);
        double parse[3] = {1e9, 1e9, 1e9}, print[3] = {1e9, 1e9, 1e9};
        for (int round = 0; round < kRounds; ++round) {
            parse[0] = std::min(parse[0], bench::once([&] { zev.parse(); }));
            parse[1] = std::min(parse[1], bench::once([&] { nlohmann.parse(); }));
            parse[2] = std::min(parse[2], bench::once([&] { rapidjson.parse(); }));
            print[0] = std::min(print[0], bench::once([&] { zev.print(); }));
            print[1] = std::min(print[1], bench::once([&] { nlohmann.print(); }));
            print[2] = std::min(print[2], bench::once([&] { rapidjson.print(); }));
        }
        report("json-parse", text.size(), parse);
        report("json-print", text.size(), print);
    }
    zGlobalCleanup();
}
