// JSON text of a listing of files: parsed into a tree (and the tree freed), printed from it.
// Beside nlohmann's tree and RapidJSON's with 16-bit text, which holds what ours holds.
// Lines: scenario peer metric value. ZEV_BENCH_FILES sets the number of files.
#include "zev/zev.h"

#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace {

std::string listing(int files) {
    std::mt19937 random(7);
    const char *kinds[] = {"unchanged", "added", "modified", "renamed"};
    std::string text = "{\"entries\":[";
    for (int i = 0; i < files; ++i) {
        char id[41], row[400];
        for (char &digit : id) digit = "0123456789abcdef"[random() % 16];
        id[40] = 0;
        snprintf(
            row, sizeof row,
            "{\"path\":\"Werk %d/Gewerk %d/Geschoss %d/Grundri\xc3\x9f %05d.dwx\",\"id\":\"%s\","
            "\"size\":%u,\"time\":%u,\"kind\":\"%s\",\"locked\":%s,\"scale\":%u.5,"
            "\"author\":\"M. Muster <muster@example.com>\",\"message\":\"Achsen \\\"A\\\" bis "
            "\\\"%c\\\" verschoben\"},",
            i % 7, i % 13, i % 29, i, id, static_cast<unsigned>(random() % 100000000),
            1700000000 + static_cast<unsigned>(random() % 10000000), kinds[random() % 4],
            random() % 2 ? "true" : "false", static_cast<unsigned>(random() % 500),
            static_cast<char>('B' + random() % 20));
        text += row;
    }
    text.back() = ']';
    return text + "}";
}

// The best of several rounds, so that other work on the machine counts least.
template <class Work> void report(const char *scenario, const char *peer, size_t bytes, Work work) {
    using Clock = std::chrono::steady_clock;
    double best = 1e9;
    for (int round = 0; round < 15; ++round) {
        const auto start = Clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
    }
    printf("%s %s MB/s %.0f\n", scenario, peer, static_cast<double>(bytes) / best / 1e6);
}

void bench_zev(const std::string &text) {
    Stream *input = zMemStream(1, text.size());
    zStreamWrite(input, text.data(), text.size());
    report("json-parse", "zev", text.size(), [&] {
        zStreamRewind(input);
        zJsonFree(zJsonReadStream(input));
    });
    zStreamRewind(input);
    Json *tree = zJsonReadStream(input);
    report("json-print", "zev", text.size(), [&] {
        Stream *output = zMemStream(1, 0);
        zJsonWriteStream(tree, output);
        zStreamFree(output);
    });
    report("json-print-wide", "zev", text.size(), [&] { zStrfreeW(zJsonWriteTextual(tree)); });
    zJsonFree(tree);
    zStreamFree(input);
}

void bench_nlohmann(const std::string &text) {
    report("json-parse", "nlohmann", text.size(), [&] { auto tree = nlohmann::json::parse(text); });
    const auto tree = nlohmann::json::parse(text);
    report("json-print", "nlohmann", text.size(), [&] { auto printed = tree.dump(); });
}

void bench_rapidjson(const std::string &text) {
    using Wide = rapidjson::UTF16<char16_t>;
    using Document = rapidjson::GenericDocument<Wide>;
    const auto parse = [&](Document &tree) {
        rapidjson::StringStream input(text.c_str());
        tree.ParseStream<rapidjson::kParseDefaultFlags, rapidjson::UTF8<>>(input);
    };
    report("json-parse", "rapidjson", text.size(), [&] {
        Document tree;
        parse(tree);
    });
    Document tree;
    parse(tree);
    report("json-print", "rapidjson", text.size(), [&] {
        rapidjson::StringBuffer output;
        rapidjson::Writer<rapidjson::StringBuffer, Wide> writer(output);
        tree.Accept(writer);
    });
}

} // namespace

int main() {
    const char *files = getenv("ZEV_BENCH_FILES");
    const std::string text = listing(files ? atoi(files) : 10000);
    printf("json listing bytes %zu\n", text.size());
    if (!zGlobalInit(u"en-US", nullptr)) return 1;
    bench_zev(text);
    bench_nlohmann(text);
    bench_rapidjson(text);
    zGlobalCleanup();
}
