// A host in a team: logs in, makes a working copy of a server's project, commits a file and lists
// what others have sent; the library tells by a table of callbacks.
//   cc team.c $(pkg-config --cflags --libs zev) -o team
//   ./team http://plant:3001 team/house ann DIRECTORY < password
#include <stdio.h>
#include <string.h>
#include <zev/zev.h>

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

static const Notify host = {.start = started, .action = acted, .warning = warned, .error = warned};

static bool listed(int32_t status, const zwchar *old, const zwchar *path, void *count) {
    (void)old; // empty, but for a rename
    printf("  %s %s\n", status == Z_KIND_DELETED ? "gone:" : "new:", zStrtoutf8(path));
    ++*(int *)count;
    return true;
}

static int fail(const char *what) {
    fprintf(stderr, "%s: %s\n", what, zStrtoutf8(zErrorDetail()));
    zGlobalCleanup();
    return 1;
}

// The library keeps of a password what opens the account; requests go out with that.
static bool log_in(const zwchar *server, const zwchar *user, const zwchar *password) {
    zwchar name[Z_LOGIN_MAX], code[Z_LOGIN_MAX];
    return zAdminLogin(server, user, password, false, false) == Z_AUTH_DONE &&
           zCookieWriteRaw(server, u"example", user, password) &&
           zCookieRead(server, u"example", name, code) && zLoginInfoSet(name, NULL, code);
}

static bool write_note(const zwchar *directory) {
    zwchar path[Z_PATH_MAX];
    zPathBuild(path, directory, u"note.txt", NULL);
    FILE *file = zFileOpen(path, u"wb");
    if (!file) return false;
    zFilePrintfA(file, "a note for the team\n");
    return zFileClose(file);
}

int main(int argc, char **argv) {
    char password[512] = "", project[Z_URL_MAX];
    if (argc != 5) return fprintf(stderr, "usage: team SERVER PROJECT USER DIRECTORY\n"), 2;
    if (!fgets(password, sizeof password, stdin)) return fputs("no password\n", stderr), 2;
    password[strcspn(password, "\r\n")] = 0;
    snprintf(project, sizeof project, "%s/repos/%s", argv[1], argv[2]);
    if (!zGlobalInit(NULL, NULL)) return fail("start");
    zwchar *copy = zStrdupW(zStrfromutf8(argv[4])); // a conversion lives for a while only
    if (!log_in(zStrfromutf8(argv[1]), zStrfromutf8(argv[3]), zStrfromutf8(password)))
        return fail("log in");

    if (!zCommandBuild(copy, zStrfromutf8(project), &host)) return fail("make a copy");
    const zwchar *const note[] = {u"note.txt"}, *const all[] = {u""};
    if (!write_note(copy) || !zCommandAdd(copy, note[0])) return fail("note.txt");
    if (!zCommandCommit(copy, zStrfromutf8(argv[3]), u"A note", 1, note, &host))
        return fail("commit");
    int count = 0;
    zCommandRefresh(copy, 1, all, NULL, listed, &count);
    printf("%d update(s)\n", count);
    zCommandDisconnect(copy);
    zStrfreeW(copy);
    return zGlobalCleanup() ? 0 : 1;
}
