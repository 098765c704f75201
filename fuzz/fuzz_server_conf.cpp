// server.conf as a function of its bytes: what is wrong with it is told, and what is found sound a
// server takes.
#include "config.hpp"
#include "scratch.hpp"

#include <cstdlib>

namespace {

using namespace host;

void require(bool holds) {
    if (!holds) abort();
}

OwnedJson read(const uint8_t *data, size_t size) {
    const OwnedStream stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    return OwnedJson(zJsonReadStream(stream.get()));
}

// With the directories of this program, and no file to be made elsewhere.
void serve(const host::Config &config) {
    static const fuzz::Scratch scratch;
    const OwnedJson tree(zJsonDup(config.tree()));
    for (const zwchar *path : {u"path.root", u"path.repos"})
        zJsonPathSetString(tree.get(), path, scratch.path().c_str());
    const Owned<Server, zServerFree> server(zServerNew(tree.get()));
    require(server != nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    try {
        const host::Config config("/srv/zev/server.conf", read(data, size));
        require(config.lines().size() > 20);
        if (!config.problems().empty()) return 0;
        require(config.root().starts_with("/") && config.repos().starts_with("/"));
        serve(config);
    } catch (const Failed &failed) { // for what is no object
        require(failed.error_class == kInvalid);
    }
    return 0;
}
