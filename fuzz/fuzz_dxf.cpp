// A DXF file cut into parts and put together again by its layout gives its bytes; a layout that
// comes from elsewhere never asks for more than there is.
#include "dxf/layout.hpp"
#include "dxf/reader.hpp"
#include "dxf/summary.hpp"
#include "host.hpp"

#include <cstdlib>

namespace {

void rebuild(const std::vector<dxf::Part> &parts, std::string_view bytes) {
    std::vector<std::string_view> header, symbols, objects;
    for (const dxf::Part &part : parts) {
        if (part.kind == dxf::Kind::header) header.push_back(part.bytes);
        if (part.kind == dxf::Kind::symbol) symbols.push_back(part.bytes);
        if (part.kind == dxf::Kind::object) objects.push_back(part.bytes);
    }
    std::string out;
    size_t symbol = 0, object = 0;
    dxf::LayoutVisitor visitor;
    visitor.literal = [&](std::string_view text) { out += text; };
    visitor.header = [&] { out += header.at(0); };
    visitor.symbols = [&](uint64_t count) {
        while (count--) out += symbols.at(symbol++);
    };
    visitor.objects = [&](uint64_t count) {
        while (count--) out += objects.at(object++);
    };
    std::string layout = dxf::write_layout(parts);
    if (!dxf::read_layout(layout, symbols.size(), objects.size(), visitor) || out != bytes) abort();
}

void read_foreign_layout(std::string_view block) {
    uint64_t symbols = 0, objects = 0;
    dxf::LayoutVisitor visitor;
    visitor.literal = [&](std::string_view text) {
        if (text.data() < block.data() || text.size() > block.size()) abort();
    };
    visitor.header = [] {};
    visitor.symbols = [&](uint64_t count) { symbols += count; };
    visitor.objects = [&](uint64_t count) { objects += count; };
    dxf::read_layout(block, 3, 300, visitor);
    if (symbols > 3 || objects > 300) abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    std::string_view bytes(reinterpret_cast<const char *>(data), size);
    read_foreign_layout(bytes);
    try {
        dxf::Document document = dxf::split(bytes, "fuzz.dxf");
        rebuild(document.parts, bytes);
        std::string summary = dxf::summary_text(dxf::summarize(document).get());
        dxf::digest_in(bytes);
        host::OwnedJson json(zJsonReadTextual(zStrfromutf8(summary.c_str())));
        if (!json) abort();
    } catch (const host::Failed &failed) {
        if (!std::string_view(failed.what()).starts_with("fuzz.dxf:")) abort();
    }
    return 0;
}
