// Makes a repository, commits one file, and lists what the commit holds.
//   cc list.c $(pkg-config --cflags --libs zev) -o list && ./list DIRECTORY
#include <stdio.h>
#include <zev/zev.h>

static int fail(const char *what) {
    fprintf(stderr, "%s: %s\n", what, zStrtoutf8(zErrorDetail()));
    zGlobalCleanup();
    return 1;
}

static int32_t show(const zwchar *directory, const TreeEntry *entry, void *count) {
    zwchar id[41];
    zOidFormat(id, zTreeEntryId(entry));
    printf("%s  %s", zStrtoutf8(id), zStrtoutf8(directory));
    printf("%s\n", zStrtoutf8(zTreeEntryName(entry)));
    ++*(int *)count;
    return 0;
}

int main(int argc, char **argv) {
    if (argc != 2) return fprintf(stderr, "usage: list DIRECTORY\n"), 2;
    if (!zGlobalInit(NULL, NULL)) return fail("start");

    const zwchar *directory = zStrfromutf8(argv[1]);
    Repository *repository = zRepositoryInit(directory, false);
    if (!repository) return fail("init");

    zwchar path[Z_PATH_MAX];
    zPathBuild(path, zRepositoryWorkdir(repository), u"note.txt", NULL);
    FILE *file = zFileOpen(path, u"wb");
    if (!file) return fail("note.txt");
    zFilePrintfA(file, "made by %s\n", argv[0]);
    zFileClose(file);

    Index *index = zIndexHead(repository, true);
    PathSpec *spec = zPathSpecNew(u"note.txt", Z_SPEC_LITERAL);
    if (!index || !spec || !zIndexAdd(index, spec)) return fail("add");
    Commit *commit = zIndexCommit(index, spec, u"HEAD", u"example", u"First note");
    if (!commit) return fail("commit");

    int count = 0;
    Tree *tree = zCommitTree(commit);
    if (!tree || !zTreeWalk(tree, show, &count)) return fail("walk");
    printf("%d file(s) in the commit\n", count);

    zTreeFree(tree);
    zCommitFree(commit);
    zPathSpecFree(spec);
    zIndexFree(index);
    zRepositoryFree(repository);
    zGlobalCleanup();
    return 0;
}
