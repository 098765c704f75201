// A service in this process and a client on the loopback, each request beside the library that does
// the least for it: libuv, zlib, libgit2, LevelDB.
#include "bare_zip.hpp"
#include "wire.hpp"

#include "common/reader.hpp"
#include "network/http/server.hpp"
#include "objects/drawing/drawing.hpp"
#include "objects/store/git.hpp"
#include "zev/zev.h"

#include <fstream>
#include <map>
#include <thread>

#include <git2.h>
#include <uv.h>

extern "C" int32_t zAuthSvrInit(AuthTable *table);

using namespace zev;
namespace fs = std::filesystem;

namespace {

using RepositoryPtr = Owned<Repository, zRepositoryFree>;

void check(bool good) {
    if (!good) bench::give_up(zStrtoutf8(zErrorDetail()));
}
void check_git(int code) {
    if (code < 0) bench::give_up(git_error_last()->message);
}
std::u16string wide(const std::string &text) { return zStrfromutf8(text.c_str()); }

std::string big_file; // what a plain download sends

HttpResponse *serve_bytes(HttpServer *, HttpRequest *request) {
    if (zHttpRequestMethod(request) == Z_HTTP_PUT) return zHttpResponseBlank(200);
    return zHttpResponseFile(200, wide(big_file).c_str());
}

// The service over a directory, with a module for its rights and one more route for bytes alone.
class Service {
  public:
    explicit Service(const std::string &root) {
        const Owned<Json, zJsonFree> config(zJsonNew(Z_JSON_OBJECT));
        zJsonPathSetString(config.get(), u"schema", u"http");
        zJsonPathSetString(config.get(), u"path.root", wide(root).c_str());
        zJsonPathSetInt(config.get(), u"http.port", 0);
        zJsonPathSetString(config.get(), u"http.host", u"127.0.0.1");
        zJsonPathSetString(config.get(), u"http.auth", u"required");
        check(zAuthSvrInit(&auth));
        server_ = zHttpServerNew(config.get(), u"http");
        check(server_);
        server_->head.auth = &auth;
        const Owned<HttpHandle, zHttpHandleFree> bytes(zHttpHandleNew(u"/bytes", serve_bytes));
        check(zHttpServerAddHandle(server_, bytes.get()));
        check(zLoopListen(server_->tcp, server_->host, server_->port));
        port_ = zTcpPort(server_->tcp);
        thread_ = std::thread([this] {
            zLoopRun(server_->tcp);
            zThreadCleanup();
        });
    }
    ~Service() {
        zHttpServerStop(server_);
        thread_.join();
        zHttpServerFree(server_);
    }
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;
    uint32_t port() const { return port_; }

    AuthTable auth{};

  private:
    HttpServer *server_ = nullptr;
    uint32_t port_ = 0;
    std::thread thread_;
};

// ---- A loop of libuv alone: it answers GET with a file, in pieces, and takes the body of a PUT
// into a file without a name.

struct BarePeer {
    uv_loop_t loop;
    uv_tcp_t listener, client;
    uv_async_t stop;
    uv_write_t write;
    bench::File file{nullptr, fclose};
    std::string head, block = std::string(65536, 0), piece = std::string(65536, 0);
    uint64_t left = 0; // of a body that comes
    std::thread thread;

    BarePeer() {
        uv_loop_init(&loop);
        uv_tcp_init(&loop, &listener);
        uv_async_init(&loop, &stop, [](uv_async_t *async) { uv_stop(async->loop); });
        loop.data = this;
        sockaddr_in any{};
        uv_ip4_addr("127.0.0.1", 0, &any);
        uv_tcp_bind(&listener, reinterpret_cast<sockaddr *>(&any), 0);
        uv_listen(stream(listener), 8, [](uv_stream_t *from, int) { of(from).accept(); });
        thread = std::thread([this] { uv_run(&loop, UV_RUN_DEFAULT); });
    }
    ~BarePeer() {
        uv_async_send(&stop);
        thread.join();
        uv_walk(
            &loop, [](uv_handle_t *handle, void *) { uv_close(handle, nullptr); }, nullptr);
        uv_run(&loop, UV_RUN_DEFAULT);
        uv_loop_close(&loop);
    }
    BarePeer(const BarePeer &) = delete;
    BarePeer &operator=(const BarePeer &) = delete;

    static uv_stream_t *stream(uv_tcp_t &tcp) { return reinterpret_cast<uv_stream_t *>(&tcp); }
    static BarePeer &of(uv_stream_t *of) { return *static_cast<BarePeer *>(of->loop->data); }
    uint32_t port() {
        sockaddr_in bound{};
        int size = sizeof bound;
        uv_tcp_getsockname(&listener, reinterpret_cast<sockaddr *>(&bound), &size);
        return ntohs(bound.sin_port);
    }
    void accept() {
        uv_tcp_init(&loop, &client);
        uv_accept(stream(listener), stream(client));
        uv_tcp_nodelay(&client, 1);
        const auto lend = [](uv_handle_t *handle, size_t, uv_buf_t *buffer) {
            std::string &block = of(reinterpret_cast<uv_stream_t *>(handle)).block;
            *buffer = uv_buf_init(block.data(), static_cast<unsigned>(block.size()));
        };
        uv_read_start(stream(client), lend, [](uv_stream_t *from, ssize_t count, const uv_buf_t *) {
            if (count > 0) of(from).take(static_cast<size_t>(count));
        });
    }
    void take(size_t count) {
        std::string_view bytes(block.data(), count);
        if (!left) {
            head.append(bytes);
            const size_t end = head.find("\r\n\r\n");
            if (end == head.npos) return;
            if (head.starts_with("GET")) return start_sending();
            left = strtoull(head.c_str() + head.find("Content-Length: ") + 16, nullptr, 10);
            file.reset(tmpfile());
            bytes.remove_prefix(count - (head.size() - end - 4));
            head.clear();
        }
        if (!bytes.empty() && ::write(fileno(file.get()), bytes.data(), bytes.size()) < 0) exit(1);
        left -= bytes.size();
        if (!left) send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    }
    void start_sending() {
        head.clear();
        file.reset(fopen(big_file.c_str(), "rb"));
        send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(fs::file_size(big_file)) +
             "\r\n\r\n");
    }
    void send(const std::string &text) {
        piece.replace(0, text.size(), text);
        put(text.size());
    }
    void put(size_t count) {
        uv_buf_t buffer = uv_buf_init(piece.data(), static_cast<unsigned>(count));
        uv_write(&write, stream(client), &buffer, 1,
                 [](uv_write_t *done, int) { of(done->handle).go_on(); });
    }
    void go_on() {
        if (!file) return;
        const ssize_t count = read(fileno(file.get()), piece.data(), piece.size());
        count > 0 ? put(static_cast<size_t>(count)) : file.reset();
    }
};

// ---- Bytes

void measure_bytes(Service &service) {
    const uint64_t size = bench::size("ZEV_BENCH_ZIP", 100) * 1'000'000;
    const std::string noise = bench::noise(size), rows = bench::rows(size);
    const auto save = [](const std::string &bytes) {
        std::ofstream(big_file, std::ios::binary) << bytes;
    };
    BarePeer peer;
    bench::Wire ours(service.port()), bare(peer.port());
    ours.keeps = bare.keeps = false;
    const auto down = [](bench::Wire &wire, std::string_view more = {}) {
        return bench::once([&] { wire.need("GET", "/bytes", {}, more); });
    };
    const auto up = [](bench::Wire &wire, const std::string &bytes, std::string_view more = {}) {
        return bench::once([&] { wire.need("PUT", "/bytes", bytes, more); });
    };
    save(noise);
    bench::by_turns(
        "server-down", "libuv", [&] { return down(ours); }, [&] { return down(bare); });
    bench::by_turns(
        "server-up", "libuv", [&] { return up(ours, noise); }, [&] { return up(bare, noise); });
    save(rows);
    const std::string zipped = "Accept-Encoding: gzip\r\n", is_zip = "Content-Encoding: gzip\r\n";
    bench::by_turns(
        "server-down-gzip-rows", "zlib", [&] { return down(ours, zipped); },
        [&] { return bench::once([&] { bench::zip(rows); }); }, 3);
    ours.keeps = true;
    ours.need("GET", "/bytes", {}, zipped);
    const std::string small = ours.body;
    bench::by_turns(
        "server-up-gzip-rows", "zlib", [&] { return up(ours, small, is_zip); },
        [&] { return bench::once([&] { bench::unzip(small); }); });
}

// ---- Objects and trees

struct Bare { // a repository of libgit2 alone, opened for one piece of work
    explicit Bare(const std::string &path) {
        check_git(git_repository_open_bare(&repository, path.c_str()));
        check_git(git_repository_odb(&odb, repository));
    }
    ~Bare() {
        git_odb_free(odb);
        git_repository_free(repository);
    }
    Bare(const Bare &) = delete;
    Bare &operator=(const Bare &) = delete;
    git_repository *repository = nullptr;
    git_odb *odb = nullptr;
};

std::string text_of(const git_oid &id) {
    char text[GIT_OID_HEXSZ + 1];
    return git_oid_tostr(text, sizeof text, &id);
}
std::string path_of(size_t n) {
    return "d" + std::to_string(n / 100) + "/f" + std::to_string(n) + ".dwx";
}

// A project whose `n` files are of many sizes, its tree, and one of the same files in libgit2.
struct Project {
    std::string url, path;
    std::vector<git_oid> files;
    git_oid tree{};

    Project(const fs::path &repos, uint64_t count) : url("/repos/ann/plant") {
        path = repos / "ann/plant";
        const RepositoryPtr made(zRepositoryInit(wide(path).c_str(), true));
        check(made != nullptr);
        const Bare bare(path);
        for (uint64_t n = 0; n < count; ++n) {
            const std::string bytes = std::to_string(n) + std::string(n % 3000, 'x');
            git_oid id;
            check_git(git_odb_write(&id, bare.odb, bytes.data(), bytes.size(), GIT_OBJECT_BLOB));
            files.push_back(id);
        }
        tree = write(bare, 0);
    }
    // A tree that is another one for each `turn`.
    git_oid write(const Bare &bare, size_t turn) const {
        git_index *index = nullptr;
        check_git(git_index_new(&index));
        for (size_t n = 0; n < files.size(); ++n) {
            const std::string name = path_of(n);
            git_index_entry entry{};
            entry.mode = GIT_FILEMODE_BLOB;
            entry.id = files[(n + turn) % files.size()];
            entry.path = name.c_str();
            check_git(git_index_add(index, &entry));
        }
        git_oid id;
        check_git(git_index_write_tree_to(&id, index, bare.repository));
        git_index_free(index);
        return id;
    }
    std::string change(size_t turn) const {
        std::string body = R"({"query":{"entries":[)";
        for (size_t n = 0; n < files.size(); ++n)
            body += std::string(n ? "," : "") + R"({"oper":"add","path":")" + path_of(n) +
                    R"(","mode":33188,"id":")" + text_of(files[(n + turn) % files.size()]) + "\"}";
        return body + "]}}";
    }
};

// A user whose rights come from a role with rules on some directories.
constexpr const char16_t *kUser = u"eva", *kCode = u"0123456789abcdef0123456789abcdef01234567";

void give_rights(const AuthTable &auth, const Project &project) {
    const RepositoryPtr repository(zRepositoryOpenBare(wide(project.path).c_str()));
    const auto need = [](int32_t status) {
        if (status != Z_AUTH_DONE) bench::give_up("rights: " + std::to_string(status));
    };
    need(auth.CreateUser(kUser, u"Eva", kCode, u"", false, false));
    need(auth.CreateRole(repository.get(), u"drafters"));
    need(auth.RoleAddUser(repository.get(), u"drafters", kUser));
    need(auth.AddSetting(repository.get(), u"/", u"drafters", 0x70));
    for (int n = 0; n < 20; ++n)
        need(auth.AddSetting(repository.get(), wide("d" + std::to_string(n * 5)).c_str(),
                             u"drafters", 0x30));
}

void walk(const Project &project) {
    const Bare bare(project.path);
    git_tree *tree = nullptr;
    check_git(git_tree_lookup(&tree, bare.repository, &project.tree));
    const auto look = [](const char *, const git_tree_entry *entry, void *odb) {
        size_t size;
        git_object_t type;
        return git_odb_read_header(&size, &type, static_cast<git_odb *>(odb),
                                   git_tree_entry_id(entry));
    };
    check_git(git_tree_walk(tree, GIT_TREEWALK_PRE, look, bare.odb));
    git_tree_free(tree);
}

void measure_objects(bench::Wire &wire, const Project &project) {
    const auto ask = [&](const char *method, const std::string &target, const std::string &body) {
        return bench::once([&] { wire.need(method, project.url + target, body); });
    };
    const std::string json = "Content-Type: application/json\r\n";
    wire.fields += json;
    const std::string listing = "/trees/" + text_of(project.tree);
    bench::by_turns(
        "server-listing", "libgit2", [&] { return ask("GET", listing, {}); },
        [&] { return bench::once([&] { walk(project); }); });
    size_t turn = 0;
    bench::by_turns(
        "server-new-tree", "libgit2", [&] { return ask("POST", "/trees", project.change(++turn)); },
        [&] {
            return bench::once([&] {
                const Bare bare(project.path);
                // Ours doesn't look each object up either.
                git_libgit2_opts(GIT_OPT_ENABLE_STRICT_OBJECT_CREATION, 0);
                project.write(bare, project.files.size() / 2 + turn);
                git_libgit2_opts(GIT_OPT_ENABLE_STRICT_OBJECT_CREATION, 1);
            });
        });

    std::vector<git_oid> ids = project.files; // every other one isn't there
    std::string body = R"({"query":{"entries":[)";
    for (size_t n = 0; n < ids.size(); ++n) {
        if (n % 2) ids[n].id[19] ^= 0xFF;
        body += (n ? ",\"" : "\"") + text_of(ids[n]) + "\"";
    }
    body += "]}}";
    bench::by_turns(
        "server-objects-diff", "libgit2", [&] { return ask("POST", "/objects/diff", body); },
        [&] {
            return bench::once([&] {
                const Bare bare(project.path);
                check_git(git_odb_refresh(bare.odb));
                for (const git_oid &id : ids)
                    git_odb_exists_ext(bare.odb, &id, GIT_ODB_LOOKUP_NO_REFRESH);
            });
        });
}

// ---- Rows

struct Rows {
    std::string pairs; // the stream that stores them
    std::vector<std::pair<std::string, std::string>> each;
    void add(uint64_t tag, uint64_t object, std::string value) {
        const KeyBytes key = key_bytes({tag, object});
        const auto put = [&](std::string_view bytes) {
            uint8_t length[4];
            store_u32(length, static_cast<uint32_t>(bytes.size()));
            pairs.append(reinterpret_cast<char *>(length), 4).append(bytes);
        };
        each.emplace_back(std::string(key.begin(), key.end()), std::move(value));
        put(each.back().first);
        put(each.back().second);
    }
    std::string stream() const { return pairs + std::string(4, 0); }
};

Rows make_rows(uint64_t count, uint64_t from) {
    bench::Random random(from);
    Rows rows;
    for (uint64_t n = 0; n < count; ++n) {
        std::string value(300 + random.below(400), 0);
        for (char &c : value) c = static_cast<char>('0' + random.below(24));
        rows.add(1 + from, n, std::move(value));
    }
    return rows;
}

// A database of LevelDB alone, open for one piece of work, its rows on the disk at the end of each.
class BareTable {
  public:
    explicit BareTable(const std::string &path) {
        leveldb_options_set_create_if_missing(options_.get(), 1);
        leveldb_writeoptions_set_sync(synced_.get(), 1);
        ldb::Text error;
        database_.reset(leveldb_open(options_.get(), path.c_str(), out(error)));
        if (error) bench::give_up(error.get());
    }
    void put(const Rows &rows) {
        const ldb::Batch batch{leveldb_writebatch_create()};
        for (const auto &[key, value] : rows.each)
            leveldb_writebatch_put(batch.get(), key.data(), key.size(), value.data(), value.size());
        write(batch.get());
    }
    void put_tag() {
        const ldb::Batch batch{leveldb_writebatch_create()};
        leveldb_writebatch_put(batch.get(), std::string(16, '\xFF').data(), 16, "12345678", 8);
        write(batch.get());
    }
    std::string get(const Rows &rows) {
        Rows found;
        for (const auto &[key, value] : rows.each) {
            size_t length = 0;
            ldb::Text error;
            const ldb::Text got{leveldb_get(database_.get(), reading_.get(), key.data(), key.size(),
                                            &length, out(error))};
            found.pairs.append(key).append(got.get(), length);
        }
        return std::move(found.pairs);
    }

  private:
    void write(leveldb_writebatch_t *batch) {
        ldb::Text error;
        leveldb_write(database_.get(), synced_.get(), batch, out(error));
        if (error) bench::give_up(error.get());
    }
    ldb::Options options_{leveldb_options_create()};
    ldb::ReadOptions reading_{leveldb_readoptions_create()};
    ldb::WriteOptions synced_{leveldb_writeoptions_create()};
    ldb::Database database_;
};

void measure_rows(bench::Wire &wire, const Project &project, const std::string &bare) {
    const auto table = [&](int n) { return project.url + "/tables/ab" + std::string(38, char(n)); };
    wire.fields += "Content-Type: application/octet-stream\r\n";
    uint64_t ours = 1, theirs = 1;
    const uint64_t few = (2 << 20) / 536;
    wire.need("PUT", table('a'), make_rows(1, 0).stream());
    const auto put = [&] {
        const std::string stream = make_rows(few, ours++).stream();
        return bench::once([&] { wire.need("PUT", table('a'), stream); });
    };
    const auto put_bare = [&] {
        const Rows rows = make_rows(few, theirs++);
        return bench::once([&] { BareTable(bare + "/a").put(rows); });
    };
    BareTable(bare + "/a").put(make_rows(1, 0));
    bench::by_turns("server-put-rows-2MiB", "leveldb", put, put_bare, 9);

    const uint64_t count = bench::size("ZEV_BENCH_OBJECTS", 100'000) / 2;
    const Rows many = make_rows(count, 1);
    wire.need("PUT", table('b'), many.stream());
    BareTable(bare + "/b").put(many);
    uint8_t number[4];
    store_u32(number, static_cast<uint32_t>(count));
    std::string keys(reinterpret_cast<char *>(number), 4);
    for (const auto &[key, value] : many.each) keys += key;
    bench::by_turns(
        "server-read-rows", "leveldb",
        [&] { return bench::once([&] { wire.need("PATCH", table('b'), keys); }); },
        [&] {
            return bench::once([&] {
                BareTable open(bare + "/b");
                open.put_tag();
                open.get(many);
            });
        });
}

} // namespace

int main() {
    check(zGlobalInit(nullptr, nullptr));
    const bench::Scratch scratch;
    const std::string root = scratch.path().string();
    fs::create_directories(root + "/bare");
    fs::create_directories(root + "/conf");
    check(zPathSetAppData(wide(root).c_str(), nullptr));
    big_file = root + "/big";
    {
        Service service(root);
        measure_bytes(service);
        const Project project(fs::path(root) / "repos", bench::size("ZEV_BENCH_FILES", 10'000));
        give_rights(service.auth, project);
        const std::string account =
            "X-ZEV-USER: eva\r\nX-ZEV-CODE: " + std::string(zStrtoutf8(kCode)) + "\r\n";
        bench::Wire objects(service.port()), rows(service.port());
        objects.fields = rows.fields = account;
        measure_objects(objects, project);
        measure_rows(rows, project, root + "/bare");
    }
    zGlobalCleanup();
}
