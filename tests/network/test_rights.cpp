// Who may do what: every operation of the service, asked by every kind of caller, where rights are
// required and where they are not. The expectations are written here, apart from the tables that
// the service reads; an operation that the tables have and that is not told here fails the test.
#include "service_fixture.hpp"

#include "rms/privilege.hpp"

#include <array>
#include <map>
#include <set>
#include <tuple>

using test::Answer, test::Service;

extern "C" int32_t zAuthSvrInit(AuthTable *table);

namespace {

namespace fs = std::filesystem;

const std::string kCode(40, '1'), kOtherCode(40, '2');

// A letter a caller. The first four don't prove who they are.
const struct Caller {
    char letter;
    const char *login;
    const std::string &code;
} kCallers[] = {
    {'-', "", kCode}, // no account at all
    {'x', "reader", kOtherCode},
    {'u', "stranger", kCode}, // unknown
    {'l', "locked", kCode},   // with all rights, but for the lock
    {'n', "norole", kCode},   //
    {'r', "reader", kCode},   // one bit each, on one path
    {'w', "writer", kCode},   //
    {'e', "exporter", kCode}, //
    {'a', "chief", kCode},    // in a group of a group of the role "administrator"
    {'p', "boss", kCode},     // power, and no role
};
constexpr const char *kUnproven = "-xul", *kEverybody = "-xulnrweap";
constexpr const char *kLogin = "nrweap", *kRead = "ra", *kWrite = "wa", *kPower = "p",
                     *kAdministrator = "ap", *kOwn = "np";

const struct Cell {
    const char *told;
    uint32_t method;
    std::string target, body;
    const char *may;                   // where rights are required
    const char *may_else = kEverybody; // where they are not
    int32_t told_code = 200;           // for those who may; any of 2xx will do for this one
} kCells[] = {
    {"GET /repos", Z_HTTP_GET, "/repos", "", kLogin},
    {"GET /repos/:owner", Z_HTTP_GET, "/repos/ann", "", kLogin},
    {"GET /repos/:owner/:name", Z_HTTP_GET, "/repos/ann/house", "", kRead},
    {"POST /repos", Z_HTTP_POST, "/repos", R"({"query":{"owner":"ann","name":"new"}})", kPower},
    {"POST /repos/:owner/:name", Z_HTTP_POST, "/repos/ann/house", R"({"query":{"newname":"shed"}})",
     kAdministrator},
    {"DELETE /repos/:owner/:name", Z_HTTP_DELETE, "/repos/ann/house", "", kAdministrator},
    {"GET /repos/:owner/:name/commits", Z_HTTP_GET, "/repos/ann/house/commits", "", kRead},
    {"GET /repos/:owner/:name/commits/:id", Z_HTTP_GET, "/repos/ann/house/commits/COMMIT", "",
     kRead},
    {"POST /repos/:owner/:name/commits", Z_HTTP_POST, "/repos/ann/house/commits",
     R"({"query":{"author":"a","message":"m","tree":"TREE","update":"refs/heads/master",)"
     R"("parent":"COMMIT"}})",
     kWrite},
    {"GET /repos/:owner/:name/refs", Z_HTTP_GET, "/repos/ann/house/refs", "", kRead},
    {"GET /repos/:owner/:name/refs/:ref", Z_HTTP_GET, "/repos/ann/house/refs/master", "", kRead},
    {"POST /repos/:owner/:name/refs", Z_HTTP_POST, "/repos/ann/house/refs", "{}", kEverybody,
     kEverybody, 400},
    {"PUT /repos/:owner/:name/refs/:ref", Z_HTTP_PUT, "/repos/ann/house/refs/master", "{}",
     kEverybody, kEverybody, 400},
    {"DELETE /repos/:owner/:name/refs/:ref", Z_HTTP_DELETE, "/repos/ann/house/refs/master", "",
     kEverybody, kEverybody, 400},
    {"GET /repos/:owner/:name/trees/:id", Z_HTTP_GET, "/repos/ann/house/trees/TREE", "", kRead},
    {"POST /repos/:owner/:name/trees", Z_HTTP_POST, "/repos/ann/house/trees",
     R"({"query":{"entries":[{"oper":"add","path":"plans/new","id":"BLOB","mode":33188}]}})",
     kWrite, kWrite},
    {"GET /repos/:owner/:name/blobs/:id", Z_HTTP_GET, "/repos/ann/house/blobs/BLOB", "", kEverybody,
     kEverybody, 404},
    {"GET /repos/:owner/:name/blobs", Z_HTTP_GET, "/repos/ann/house/blobs", "", kEverybody,
     kEverybody, 400},
    {"POST /repos/:owner/:name/blobs", Z_HTTP_POST, "/repos/ann/house/blobs", "{}", kEverybody,
     kEverybody, 404},
    {"POST /repos/:owner/:name/blobs/:id", Z_HTTP_POST, "/repos/ann/house/blobs/BLOB", "{}",
     kEverybody, kEverybody, 400},
    {"GET /repos/:owner/:name/objects/:id", Z_HTTP_GET, "/repos/ann/house/objects/BLOB", "", kRead},
    {"PUT /repos/:owner/:name/objects/:id", Z_HTTP_PUT,
     "/repos/ann/house/objects/ce013625030ba8dba906f756967f9e9ca394464a",
     std::string("\0\0\0\4blob\0\0\0\6hello\n", 18), kWrite},
    {"POST /repos/:owner/:name/objects/diff", Z_HTTP_POST, "/repos/ann/house/objects/diff",
     R"({"query":{"entries":["BLOB"]}})", kRead},
    {"POST /repos/:owner/:name/packs/diff", Z_HTTP_POST, "/repos/ann/house/packs/diff",
     R"({"query":{"entries":[{"id":"BLOB"}]}})", kRead},
    {"POST /repos/:owner/:name/packs", Z_HTTP_POST, "/repos/ann/house/packs",
     std::string("\0\0\0\4PACK", 8), kWrite, kEverybody, 500}, // of no use as a pack
    {"GET /repos/:owner/:name/revisions", Z_HTTP_GET, "/repos/ann/house/revisions", "", kRead},
    {"GET /repos/:owner/:name/revisions/:id", Z_HTTP_GET, "/repos/ann/house/revisions/COMMIT", "",
     kRead},
    {"PATCH /repos/:owner/:name/revisions", Z_HTTP_PATCH, "/repos/ann/house/revisions",
     R"([{"oid":"COMMIT"}])", kRead},
    {"POST /repos/:owner/:name/tables", Z_HTTP_POST, "/repos/ann/house/tables",
     R"({"query":{"id":"BLOB"}})", kWrite},
    {"POST /repos/:owner/:name/tables/:id", Z_HTTP_POST, "/repos/ann/house/tables/BLOB",
     std::string(4, '\0'), kWrite},
    {"PUT /repos/:owner/:name/tables/:id", Z_HTTP_PUT, "/repos/ann/house/tables/BLOB",
     std::string(4, '\0'), kWrite},
    {"PATCH /repos/:owner/:name/tables/:id", Z_HTTP_PATCH, "/repos/ann/house/tables/BLOB",
     std::string("\0\0\0\1", 4) + std::string(16, '\xff'), kRead},
    {"POST /repos/:owner/:name/rms", Z_HTTP_POST, "/repos/ann/house/rms", "{}", kLogin, kEverybody,
     400},
    {"POST /rms", Z_HTTP_POST, "/rms", "{}", kEverybody, kEverybody, 400},
    {"GET /health", Z_HTTP_GET, "/health", "", kEverybody},
};

// Of both rms routes; a user in the arguments is "norole".
const struct CommandCell {
    const char *target, *name, *args, *may;
    int32_t told_code = 200;
} kCommands[] = {
    {"user", "create", R"("login":"new","password":"CODE")", kPower},
    {"user", "modify", R"("login":"norole","name":"N")", kPower},
    {"user", "delete", R"("login":"norole")", kPower},
    {"user", "reset-password", R"("login":"norole","password":"CODE")", kOwn},
    {"user", "get-info", R"("login":"NoRole")", kOwn},
    {"user", "dis-name", R"("login":"norole","password":"CODE")", kEverybody},
    {"user", "list", "", kPower},
    {"user", "login", R"("login":"norole","password":"CODE")", kEverybody},
    {"user", "check", R"("login":"norole","password":"CODE")", kEverybody},
    {"group", "create", R"("name":"new")", kPower},
    {"group", "get", R"("name":"outer")", kPower},
    {"group", "get-name", R"("id":1)", kPower},
    {"group", "delete", R"("id":2)", kPower},
    {"group", "get-root", "", kPower},
    {"group", "rename", R"("id":1,"name":"other")", kPower},
    {"group", "set-parent", R"("id":2,"parent":0)", kPower},
    {"group", "add-member", R"("id":1,"user":"norole")", kPower},
    {"group", "rem-member", R"("id":2,"user":"chief")", kPower},
    {"group", "member-list", R"("id":1)", kPower},
    {"role", "create", R"("name":"new")", kAdministrator},
    {"role", "delete", R"("name":"readers")", kAdministrator},
    {"role", "rename", R"("name":"readers","newname":"lookers")", kAdministrator},
    {"role", "list", "", kAdministrator},
    {"role", "add-user", R"("name":"readers","user":"norole")", kAdministrator},
    {"role", "remove-user", R"("name":"readers","user":"reader")", kAdministrator},
    {"role", "add-group", R"("name":"readers","id":1)", kAdministrator},
    {"role", "remove-group", R"("name":"administrator","id":1)", kAdministrator},
    {"role", "member-list", R"("name":"readers")", kAdministrator},
    {"role", "member-purge", R"("name":"readers")", kAdministrator},
    {"settings", "set-default", R"("setting":16)", kAdministrator},
    {"settings", "get-default", "", kAdministrator, 500}, // it has none: 103
    {"settings", "add-setting", R"("path":"/","role":"readers","setting":112)", kAdministrator},
    {"settings", "remove-setting", R"("path":"plans","role":"readers")", kAdministrator},
    {"settings", "clear-settings", R"("path":"plans")", kAdministrator},
    {"settings", "list-settings", R"("path":"plans")", kAdministrator},
    {"settings", "role-settings", R"("role":"readers")", kAdministrator},
    {"settings", "user-settings", R"("user":"norole")", kAdministrator},
    {"settings", "local-db", R"("user":"norole","sid1":"","sid2":"")", "nap"},
    {"directories", "create", R"("path":"new","ref":"HEAD")", kAdministrator},
    {"directories", "list", R"("ref":"HEAD")", kAdministrator},
    {"directories", "delete", R"("path":"plans","ref":"HEAD")", kAdministrator},
    {"directories", "rename", R"("path":"plans","ref":"HEAD","newname":"x")", kAdministrator},
};

// Every file below a directory, with its bytes.
std::map<std::string, std::string> files_of(const fs::path &directory) {
    std::map<std::string, std::string> files;
    for (const auto &entry : fs::recursive_directory_iterator(directory))
        files[entry.path().string()] =
            entry.is_regular_file() ? test::read(entry.path()) : std::string();
    return files;
}

// How often a password was looked at.
int checks;
int32_t (*check)(const zwchar *, const zwchar *, bool);
int32_t count_check(const zwchar *login, const zwchar *password, bool power) {
    return ++checks, check(login, password, power);
}

// A service with the callers in its store and a project with something in it; it can be put back.
class World {
  public:
    explicit World(const char16_t *mode) {
        EXPECT_TRUE(zPathGetAppData(former_));
        EXPECT_TRUE(zPathSetAppData(dir_.path().u16string().c_str(), nullptr));
        fs::create_directory(dir_.path() / "conf");
        zAuthSvrInit(&table_);
        check = std::exchange(table_.CheckUser, count_check);
        service_ = std::make_unique<Service>(mode, &table_);
        make_users();
        make_project(*service_, "ann/house");
        fill_project();
        make_roles();
        for (const auto &[from, to] : places()) fs::copy(from, to, fs::copy_options::recursive);
        whole_ = state();
    }
    ~World() {
        service_.reset();
        zPathSetAppData(former_, nullptr);
    }

    Answer ask(const Caller &caller, uint32_t method, std::string target, std::string body) {
        for (auto *text : {&target, &body})
            for (const auto &[word, id] : words_)
                if (const size_t at = text->find(word); at != text->npos)
                    text->replace(at, word.size(), id);
        service_->server().throttle = {}; // each is asked as if for the first time
        checks = 0;
        service_->log_in(caller.login, caller.code);
        const bool is_json = body.starts_with('{') || body.starts_with('[');
        const char16_t *type = is_json ? u"application/json" : u"application/octet-stream";
        return service_->ask(method, target, body, body.empty() ? nullptr : type);
    }
    bool is_whole() const { return state() == whole_; }
    void put_back() {
        for (const auto &[from, to] : places()) {
            fs::remove_all(from);
            fs::copy(to, from, fs::copy_options::recursive);
        }
    }
    Service &service() { return *service_; }
    // In place of those of the roles "readers", "writers" and "exporters". The user "writer" has
    // the role "shut" besides, "reader" that of the writers alone.
    void set_rules(const std::vector<std::tuple<const zwchar *, const zwchar *, int32_t>> &rules) {
        const auto repository = open();
        for (const zwchar *role : {u"readers", u"writers", u"exporters"})
            EXPECT_EQ(table_.RemoveSetting(repository.get(), u"plans", role), 100);
        EXPECT_EQ(table_.CreateRole(repository.get(), u"shut"), 100);
        EXPECT_EQ(table_.RoleAddUser(repository.get(), u"shut", u"writer"), 100);
        EXPECT_EQ(table_.RoleAddUser(repository.get(), u"writers", u"reader"), 100);
        for (const auto &[path, role, bits] : rules)
            EXPECT_EQ(table_.AddSetting(repository.get(), path, role, bits), 100);
    }
    int32_t bits_of(const zwchar *user, std::u16string_view path) {
        return zev::Privileges(&table_, user, open().get()).at(path);
    }
    void give_password(const zwchar *login) {
        const std::u16string code = test::wide(kCode);
        EXPECT_EQ(table_.ResetPassword(login, code.c_str()), 100);
        EXPECT_EQ(table_.ModifyUser(login, nullptr, nullptr, nullptr, true, false), 100);
    }

  private:
    void make_users() {
        const std::u16string code = test::wide(kCode);
        for (const char *login : {"norole", "reader", "writer", "exporter", "chief", "boss"})
            EXPECT_EQ(table_.CreateUser(test::wide(login).c_str(), u"", code.c_str(), u"",
                                        std::string_view(login) == "boss", false),
                      100)
                << login;
        EXPECT_EQ(table_.CreateUser(u"locked", u"", code.c_str(), u"", true, true), 100);
        int32_t outer = -1, inner = -1;
        EXPECT_EQ(table_.CreateGroup(u"outer", 0, &outer), 100);
        EXPECT_EQ(table_.CreateGroup(u"inner", outer, &inner), 100);
        EXPECT_EQ(table_.AddMember(inner, u"chief"), 100);
        outer_ = outer;
    }
    test::Guard<Repository> open() const {
        return test::guard(zRepositoryOpenBare(test::wide(service_->at("ann/house")).c_str()),
                           zRepositoryFree);
    }
    void make_roles() {
        const auto repository = open();
        const struct {
            const zwchar *role, *user, *path;
            int32_t bits;
        } rows[] = {{u"readers", u"reader", u"plans", 16},
                    {u"writers", u"writer", u"plans", 32},
                    {u"exporters", u"exporter", u"plans", 64},
                    {u"administrator", u"locked", u"/", 112}};
        for (const auto &row : rows) {
            EXPECT_EQ(table_.CreateRole(repository.get(), row.role), 100);
            EXPECT_EQ(table_.RoleAddUser(repository.get(), row.role, row.user), 100);
            EXPECT_EQ(table_.AddSetting(repository.get(), row.path, row.role, row.bits), 100);
        }
        EXPECT_EQ(table_.RoleAddGroup(repository.get(), u"administrator", outer_), 100);
    }
    void fill_project() {
        const std::string tree = store_tree(*service_, "ann/house", {{"plans/a", "a\n"}}),
                          commit = commit_tree(*service_, "ann/house", tree);
        service_->git("ann/house", "update-ref refs/heads/master " + commit);
        words_ = {
            {"COMMIT", commit}, {"TREE", tree}, {"BLOB", test::id_of("a\n")}, {"CODE", kCode}};
    }
    std::vector<std::pair<fs::path, fs::path>> places() const {
        return {{service_->repos(), saved_.path() / "repos"},
                {dir_.path() / "conf", saved_.path() / "conf"}};
    }
    std::map<std::string, std::string> state() const {
        auto all = files_of(service_->repos());
        all.merge(files_of(dir_.path() / "conf"));
        return all;
    }

    test::TempDir dir_, saved_;
    zwchar former_[Z_PATH_MAX] = {};
    AuthTable table_{};
    std::unique_ptr<Service> service_;
    int32_t outer_ = -1;
    std::map<std::string, std::string> words_;
    std::map<std::string, std::string> whole_;
};

bool has(std::string_view letters, char letter) { return letters.find(letter) != letters.npos; }

// One operation asked by everybody.
void expect_row(World &world, const Cell &cell, const char *may) {
    for (const Caller &caller : kCallers) {
        const Answer answer = world.ask(caller, cell.method, cell.target, cell.body);
        EXPECT_LE(checks, 2) << caller.letter; // hashes: of the password alone, and with power
        const bool refused = answer.code == 401 || answer.code == 403 || answer.code == 429;
        const bool should = !has(may, caller.letter);
        EXPECT_EQ(refused, should) << caller.letter << ": " << answer.code << answer.body;
        const bool is_told = answer.code == cell.told_code;
        const bool succeeds = cell.told_code == 200 && answer.code / 100 == 2;
        EXPECT_TRUE(refused || is_told || succeeds) << answer.code << answer.body;
        const bool unproven = has(kUnproven, caller.letter);
        if (refused && should && std::string_view(cell.told).find("trees") == std::string::npos) {
            EXPECT_EQ(answer.code, unproven ? 401 : 403) << caller.letter;
            EXPECT_EQ(answer.text("error.code"), unproven ? "401" : "403") << caller.letter;
        }
        const bool whole = world.is_whole();
        if (refused) {
            EXPECT_TRUE(whole) << caller.letter;
        }
        if (!whole) world.put_back();
    }
}

const Cell *cell_of(std::string_view told) {
    for (const Cell &cell : kCells)
        if (cell.told == told) return &cell;
    return nullptr;
}

void expect_all(const char16_t *mode, bool required) {
    World world(mode);
    for (const auto &operation : zev::rest::kOperations) {
        SCOPED_TRACE(operation.told);
        if (const Cell *cell = cell_of(operation.told))
            expect_row(world, *cell, required ? cell->may : cell->may_else);
    }
    for (const CommandCell &each : kCommands) {
        SCOPED_TRACE(std::string(each.target) + " " + each.name);
        const std::string_view target = each.target;
        const bool on_server = target == "user" || target == "group";
        const Cell cell = {"",
                           Z_HTTP_POST,
                           on_server ? "/rms" : "/repos/ann/house/rms",
                           R"({"query":{"target":")" + std::string(target) + R"(","name":")" +
                               each.name + R"(","args":{)" + each.args + "}}}",
                           each.may,
                           kEverybody,
                           each.told_code};
        expect_row(world, cell, required ? each.may : kEverybody);
    }
}

TEST(Rights, AreAskedForWhereRequired) { expect_all(u"required", true); }
TEST(Rights, AreLeftToTreesElsewhere) { expect_all(u"none", false); }

TEST(Rights, AreToldForEveryOperation) {
    for (const auto &operation : zev::rest::kOperations)
        EXPECT_TRUE(cell_of(operation.told)) << operation.told;
    std::set<std::string> told_commands, commands;
    for (const auto &each : kCommands) told_commands.insert(std::string(each.target) + each.name);
    for (const auto &table : {zev::rest::kServerCommands, zev::rest::kProjectCommands})
        for (const auto &command : table)
            commands.insert(test::narrow(command.target) + test::narrow(command.name));
    EXPECT_EQ(told_commands, commands);
}

// Whoever asks, a project whose file of rights is damaged grants him nothing, and he is told that
// it is the server's fault. "admin" reads it all the same, and power can clear it away.
TEST(Rights, ADamagedFileOfRightsGrantsNothing) {
    World world(u"required");
    Service &service = world.service();
    const auto ask = [&](const char *login, const char *target) {
        service.log_in(login, kCode);
        return service.get(target).code;
    };
    const auto act = [&](const char *login, const std::string &args) {
        service.log_in(login, kCode);
        return service.post("/repos/ann/house/rms", R"({"query":{"target":"role",)" + args + "}}");
    };
    world.give_password(u"admin");
    const auto file = service.repos() / "ann/house/AUTHZ", aside = service.repos() / "AUTHZ";
    fs::copy(file, aside);
    test::write(file, "{\"version\":");
    for (const char *login : {"reader", "writer", "norole", "boss"}) {
        EXPECT_EQ(ask(login, "/repos/ann/house"), 500) << login;
        EXPECT_EQ(ask(login, "/repos/ann/house/refs"), 500) << login;
    }
    EXPECT_EQ(act("chief", R"("name":"list")").code, 500);
    EXPECT_EQ(act("boss", R"("name":"list")").text("data.status"), "110");
    EXPECT_EQ(ask("admin", "/repos/ann/house/refs"), 200);
    service.log_in("boss", kCode);
    EXPECT_EQ(service.get("/repos/ann").entries(), 1u);
    EXPECT_EQ(test::read(file), "{\"version\":"); // nobody wrote over it
    fs::remove(file); // then nobody has a role, and power gives some out
    EXPECT_EQ(ask("reader", "/repos/ann/house"), 403);
    EXPECT_EQ(act("boss", R"("name":"create","args":{"name":"new"})").text("data.status"), "100");
    fs::rename(aside, file);
    EXPECT_EQ(ask("reader", "/repos/ann/house"), 200);
    test::write(file, "{");
    EXPECT_EQ(service.drop("/repos/ann/house").code, 500); // a reader, who might be more
    service.log_in("boss", kCode);
    EXPECT_EQ(service.drop("/repos/ann/house").code, 204);
}

// What was kept from somebody is kept from him by its new name; by the old one, too, since the
// commits before have it there.
TEST(Rights, RulesGoAlongWithADirectory) {
    World world(u"required");
    Service &service = world.service();
    service.log_in("boss", kCode);
    const auto act = [&](const char *target, const char *name, const std::string &args) {
        const std::string command = R"({"query":{"target":")" + std::string(target) +
                                    R"(","name":")" + name + R"(","args":{)" + args + "}}}";
        return service.post("/repos/ann/house/rms", command).code;
    };
    const auto rename = [&](const std::string &path, const std::string &name) {
        return act("directories", "rename",
                   R"("ref":"master","path":")" + path + R"(","newname":")" + name + '"');
    };
    const auto set = [&](const std::string &role, const std::string &path, const char *bits) {
        return act("settings", "add-setting",
                   R"("role":")" + role + R"(","path":")" + path + R"(","setting":)" + bits);
    };
    const auto rules = [&] { // of all roles but the administrators'
        std::string all;
        const auto tree = test::guard(
            zJsonReadFile((service.repos() / "ann/house/AUTHZ").u16string().c_str()), zJsonFree);
        Json *list = zJsonPathGet(tree.get(), u"settings");
        for (uint64_t n = 0; n < zJsonArraySize(list); ++n) {
            Json *rule = zJsonArrayAt(list, n);
            for (const zwchar *part : {u"path", u"role", u"privilege"})
                all += test::narrow(zJsonPathGetString(rule, part)) + " ";
        }
        return all.substr(all.find("112 ") + 4);
    };
    ASSERT_EQ(set("readers", "PLANS/deep", "0"), 200);
    ASSERT_EQ(set("writers", "drafts", "112"), 200); // of an earlier directory
    ASSERT_EQ(set("writers", "plans2", "64"), 200);  // no part of it
    const std::string before = rules();
    const auto lock = service.at("ann/house") + "/refs/heads/master.lock";
    test::write(lock, "");
    EXPECT_NE(rename("plans", "drafts"), 200);
    EXPECT_EQ(rules(), before);
    fs::remove(lock);
    EXPECT_EQ(rename("plans", "drafts"), 200);
    EXPECT_EQ(rules(), "drafts exporters 64 drafts readers 16 drafts writers 32 "
                       "drafts/deep readers 0 plans exporters 64 plans readers 16 "
                       "plans writers 32 PLANS/deep readers 0 plans2 writers 64 ");
    EXPECT_EQ(rename("drafts", "Drafts"), 400); // a role has one rule for both
    ASSERT_EQ(set("readers", "drafts", "0"), 200);
    EXPECT_EQ(rename("drafts", "plans"), 400); // what "PLANS/deep" forbids would no longer be
    ASSERT_EQ(set("readers", "plans/deep", "0"), 200);
    EXPECT_EQ(rename("drafts", "plans"), 200); // back, to the rule that it had before
    EXPECT_NE(rules().find("plans readers 0 "), std::string::npos) << rules();
}

// Rules that an earlier directory left at the new name open nothing that was closed by the old one,
// whatever roles somebody has; nor do those that held at neither name, for their spelling.
TEST(Rights, LeftRulesOpenNothing) {
    World world(u"required");
    using Rules = std::vector<std::tuple<const zwchar *, const zwchar *, int32_t>>;
    const struct {
        const char *what;
        Rules rules;
        int32_t code;
        std::array<int32_t, 2> may; // on "drafts/deep/a" afterwards: with both roles, with one
    } cases[] = {
        {"a rule without a counterpart",
         {{u"/", u"writers", 0}, {u"drafts", u"writers", 112}},
         200,
         {0, 0}},
        {"one below",
         {{u"/", u"writers", 112}, {u"plans", u"writers", 0}, {u"drafts/deep", u"writers", 112}},
         200,
         {0, 0}},
        {"one that is only in the way of another role's",
         {{u"/", u"writers", 112}, {u"drafts", u"writers", 112}, {u"plans", u"shut", 0}},
         200,
         {0, 112}},
        {"one that grants and forbids beside another role's",
         {{u"/", u"writers", 112}, {u"drafts", u"writers", 48}, {u"plans", u"shut", 0}},
         200,
         {0, 0}},
        {"one that forbids",
         {{u"plans", u"writers", 112}, {u"drafts/deep", u"writers", 16}},
         200,
         {16, 16}},
        {"a grant that didn't hold",
         {{u"/", u"writers", 0}, {u"PLANS", u"writers", 112}},
         200,
         {0, 0}},
        {"one that would be written over",
         {{u"plans", u"writers", 48}, {u"Drafts", u"writers", 0}},
         400,
         {1, 1}},
        {"one of another role that would hide what is carried",
         {{u"plans", u"writers", 48}, {u"Drafts", u"shut", 0}},
         400,
         {1, 1}},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        world.set_rules(each.rules);
        world.service().log_in("boss", kCode);
        const std::string rename = R"({"query":{"target":"directories","name":"rename","args":{)"
                                   R"("ref":"master","path":"plans","newname":"drafts"}}})";
        EXPECT_EQ(world.service().post("/repos/ann/house/rms", rename).code, each.code);
        EXPECT_EQ(world.bits_of(u"writer", u"drafts/deep/a"), each.may[0]);
        EXPECT_EQ(world.bits_of(u"reader", u"drafts/deep/a"), each.may[1]);
        world.put_back();
    }
}

TEST(Rights, TenFailuresShutOut) {
    World world(u"required");
    Service &service = world.service();
    const char *const kTarget = "/repos/ann/house/revisions";
    const std::string login = R"({"query":{"target":"user","name":"login","args":{)"
                              R"("login":"reader","password":")";
    for (int i = 0; i < 5; ++i) {
        service.log_in("reader", kOtherCode);
        EXPECT_EQ(service.get(kTarget).code, 401);
        EXPECT_EQ(service.post("/rms", login + kOtherCode + "\"}}}").text("data.status"), "105");
    }
    service.log_in("reader", kCode);
    EXPECT_EQ(service.get(kTarget).code, 429);
    EXPECT_EQ(service.post("/rms", login + kCode + "\"}}}").code, 429);
    service.log_in("writer", kCode); // the address failed as often
    EXPECT_EQ(service.get(kTarget).code, 429);
    // Behind a proxy each has his own.
    for (const char *seen : {"2001:db8::1", "127.0.0.1, 192.0.2.7"}) {
        service.forwarded = seen;
        EXPECT_NE(service.get(kTarget).code, 429) << seen;
    }
    for (int i = 0; i < 10; ++i) {
        service.log_in("nobody" + std::to_string(i), kCode);
        EXPECT_EQ(service.get(kTarget).code, 401) << i;
    }
    service.forwarded = "192.0.2.8,192.0.2.7"; // what stands before it was told by the client
    EXPECT_EQ(service.get(kTarget).code, 429);
    service.forwarded = "192.0.2.8, me"; // no address: the proxy's own
    EXPECT_EQ(service.get(kTarget).code, 429);
}

TEST(Rights, AreRequiredByASlipToo) {
    World world(u"requierd");
    EXPECT_EQ(world.service().get("/repos").code, 401);
}

} // namespace
