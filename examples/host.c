// A host on the command front: commits what is in a working copy, changes it and takes the change
// back; the library tells and asks by a table of callbacks.
//   cc host.c $(pkg-config --cflags --libs zev) -o host && ./host DIRECTORY
#include <stdio.h>
#include <zev/zev.h>

// The table of callbacks: slots that stay null are passed over.
static void started(const Notify *self, const zwchar *heading, const zwchar *text) {
    (void)self;
    printf("%s: %s\n", zStrtoutf8(heading), zStrtoutf8(text));
}

static void acted(const Notify *self, const zwchar *action, const zwchar *path) {
    (void)self;
    printf("  %s %s\n", zStrtoutf8(action), zStrtoutf8(path));
}

static void warned(const Notify *self, const zwchar *text) {
    (void)self;
    fprintf(stderr, "  %s\n", zStrtoutf8(text));
}

// Nobody is there to ask: no answer is the safe one.
static int32_t asked(const Notify *self, const TaskDialog *question) {
    (void)self;
    fprintf(stderr, "  %s\n", zStrtoutf8(zTaskDialogInstruction(question)));
    return -1;
}

static const Notify host = {
    .start = started, .action = acted, .warning = warned, .error = warned, .dialog = asked};

static bool show(int32_t status, const zwchar *old, const zwchar *path, void *count) {
    (void)old; // empty, but for a rename
    printf("  %s%s\n", status == Z_KIND_UNCHANGED ? "" : "* ", zStrtoutf8(path));
    ++*(int *)count;
    return true;
}

static int fail(const char *what) {
    fprintf(stderr, "%s: %s\n", what, zStrtoutf8(zErrorDetail()));
    zGlobalCleanup();
    return 1;
}

static bool write_note(const zwchar *directory, const char *text) {
    zwchar path[Z_PATH_MAX];
    zPathBuild(path, directory, u"note.txt", NULL);
    FILE *file = zFileOpen(path, u"wb");
    if (!file) return false;
    zFilePrintfA(file, "%s\n", text);
    return zFileClose(file);
}

// A new working copy with one file in it.
static bool prepare(const zwchar *directory) {
    Repository *repository = zRepositoryInit(directory, false);
    zRepositoryFree(repository);
    return repository && write_note(directory, "a note");
}

int main(int argc, char **argv) {
    if (argc != 2) return fprintf(stderr, "usage: host DIRECTORY\n"), 2;
    if (!zGlobalInit(NULL, NULL)) return fail("start");
    zwchar *copy = zStrdupW(zStrfromutf8(argv[1])); // the conversion lives for a while only
    if (!copy || !prepare(copy)) return fail("prepare");

    if (!zCommandConnect(copy)) return fail("connect");
    if (!zCommandAdd(copy, u"note.txt")) return fail("add");
    zCommandReload(copy, NULL, true); // the tree of nodes is a picture of the last reload

    int count = 0;
    const zwchar *const all[] = {u""};
    puts("A commit would take:");
    if (!zCommandChangelist(copy, 1, all, show, &count)) return fail("changelist");
    if (!zCommandCommit(copy, u"example", u"First note", 1, all, &host)) return fail("commit");

    // What the note was before goes to the trash of the working copy.
    if (!write_note(copy, "spilled ink")) return fail("note.txt");
    zCommandReload(copy, NULL, true);
    if (!zCommandRevert(copy, 1, all, &host)) return fail("revert");

    puts("The working copy holds:");
    if (!zCommandList(copy, NULL, show, &count)) return fail("list");
    printf("%d line(s)\n", count);
    zCommandDisconnect(copy);
    zStrfreeW(copy);
    zGlobalCleanup();
    return 0;
}
