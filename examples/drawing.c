// Writes a drawing of three objects into a working copy, and reads it back.
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

static bool save(Repository *repository, const zwchar *path) {
    Table *table = zTableRand(repository);
    Drawing *drawing = zDrawingNew(NULL, NULL);
    bool done = table && drawing && zDrawingTableIdSet(drawing, zTableId(table)) &&
                zDrawingTableBackwardRefSet(table, zRepositoryWorkdir(repository), path);
    for (uint64_t i = 0; done && i < 3; ++i) {
        DrawingKey *key = zDrawingObjectAdd(drawing, table, 0x100 + i);
        done = key && zDrawingKeyPutData(table, key, blocks[i], strlen(blocks[i]));
    }
    done = done && zDrawingWrite(drawing, path);
    zDrawingFree(drawing);
    zTableFree(table);
    return done;
}

static bool load(Repository *repository, const zwchar *path) {
    Drawing *drawing = zDrawingRead(path);
    Table *table = drawing ? zTableByid(repository, zDrawingTableId(drawing)) : NULL;
    bool done = table != NULL;
    for (uint64_t i = 0; done && i < zDrawingObjectCount(drawing); ++i) {
        const DrawingKey *key = zDrawingObjectGetAt(drawing, i);
        void *value = NULL;
        uint64_t length = 0;
        done = zDrawingKeyGetData(table, key, &value, &length);
        if (done)
            printf("%llx: %.*s\n", (unsigned long long)key->object, (int)length, (char *)value);
        zStrfreeA(value);
    }
    zTableFree(table);
    zDrawingFree(drawing);
    return done;
}

int main(int argc, char **argv) {
    if (argc != 2) return fprintf(stderr, "usage: drawing DIRECTORY\n"), 2;
    if (!zGlobalInit(NULL, NULL)) return fail("start");
    Repository *repository = zRepositoryInit(zStrfromutf8(argv[1]), false);
    if (!repository) return fail("init");

    zwchar path[Z_PATH_MAX];
    zPathBuild(path, zRepositoryWorkdir(repository), u"plan.dwx", NULL);
    if (!save(repository, path)) return fail("save");
    if (!load(repository, path)) return fail("load");

    zRepositoryFree(repository);
    zGlobalCleanup();
    return 0;
}
