// Commits two versions of a drawing of three objects, and reads both back.
//   cc drawing.c $(pkg-config --cflags --libs zev) -o drawing && ./drawing DIRECTORY
#include <stdio.h>
#include <string.h>
#include <zev/zev.h>

static const char *const blocks[] = {"a line", "a circle", "an arc"};

static int fail(const char *what) {
    fprintf(stderr, "%s: %s\n", what, zStrtoutf8(zErrorDetail()));
    zGlobalCleanup();
    return 1;
}

static bool put(Table *table, const DrawingKey *key, const char *block) {
    return key && zDrawingKeyPutData(table, key, block, strlen(block));
}

static bool save_first(Repository *repository, const zwchar *path) {
    Table *table = zTableRand(repository);
    Drawing *drawing = zDrawingNew(NULL, NULL);
    bool done = table && drawing && zDrawingTableIdSet(drawing, zTableId(table)) &&
                zDrawingTableBackwardRefSet(table, zRepositoryWorkdir(repository), path);
    for (uint64_t i = 0; done && i < 3; ++i)
        done = put(table, zDrawingObjectAdd(drawing, table, 0x100 + i), blocks[i]);
    done = done && zDrawingWrite(drawing, path);
    zDrawingFree(drawing);
    zTableFree(table);
    return done;
}

// The first version is committed: without a higher tag its second row would be written over.
static bool save_second(Repository *repository, const zwchar *path) {
    Drawing *drawing = zDrawingRead(path);
    Table *table = drawing ? zTableByid(repository, zDrawingTableId(drawing)) : NULL;
    bool done =
        table && zTableTagIncrement(table) && zDrawingObjectModify(drawing, 1, table, 0x101) &&
        put(table, zDrawingObjectGetAt(drawing, 1), "an ellipse") && zDrawingWrite(drawing, path);
    zTableFree(table);
    zDrawingFree(drawing);
    return done;
}

static bool commit(Repository *repository, const zwchar *message) {
    Index *index = zIndexHead(repository, true);
    PathSpec *all = zPathSpecNew(u"*", 0);
    Commit *made = NULL;
    if (index && all && zIndexAdd(index, all) && zIndexWrite(index))
        made = zIndexCommit(index, all, u"HEAD", u"example", message);
    bool done = made != NULL;
    zCommitFree(made);
    zPathSpecFree(all);
    zIndexFree(index);
    return done;
}

static bool show(Repository *repository, const Manifest *manifest) {
    Table *table = zTableByid(repository, &manifest->table);
    bool done = table != NULL;
    for (uint64_t i = 0; done && i < manifest->object_count; ++i) {
        DrawingKey key;
        void *value = NULL;
        uint64_t length = 0;
        zManifestKey(&key, manifest->objects, i);
        done = zDrawingKeyGetData(table, &key, &value, &length);
        if (done)
            printf("%llx: %.*s\n", (unsigned long long)key.object, (int)length, (char *)value);
        zStrfreeA(value);
    }
    zTableFree(table);
    return done;
}

// The drawing as a commit has it.
static bool load(Repository *repository, Commit *version) {
    Blob *blob = version ? zBlobBypath((Object *)version, u"plan.dwx") : NULL;
    uint64_t size = 0;
    Manifest manifest = {0};
    const void *bytes = blob ? zBlobData(blob, &size) : NULL;
    bool done = bytes && zManifestRead(&manifest, bytes, size) && show(repository, &manifest);
    zManifestDeinit(&manifest);
    zBlobFree(blob);
    return done;
}

int main(int argc, char **argv) {
    if (argc != 2) return fprintf(stderr, "usage: drawing DIRECTORY\n"), 2;
    if (!zGlobalInit(NULL, NULL)) return fail("start");
    Repository *repository = zRepositoryInit(zStrfromutf8(argv[1]), false);
    if (!repository) return fail("init");

    zwchar path[Z_PATH_MAX];
    zPathBuild(path, zRepositoryWorkdir(repository), u"plan.dwx", NULL);
    if (!save_first(repository, path)) return fail("first version");
    if (!commit(repository, u"first")) return fail("commit");
    if (!save_second(repository, path)) return fail("second version");
    if (!commit(repository, u"second")) return fail("commit");

    Commit *second = zCommitHead(repository), *first = second ? zCommitParent(second) : NULL;
    if (!load(repository, first) || !load(repository, second)) return fail("load");
    zCommitFree(first);
    zCommitFree(second);
    zRepositoryFree(repository);
    zGlobalCleanup();
    return 0;
}
