// The service as a process of its own, as it is shipped: its memory, and what one caller waits
// while others are served.
#include "wire.hpp"

#include "common/sha1.hpp"

#include <atomic>
#include <cinttypes>
#include <csignal>
#include <fstream>
#include <set>
#include <thread>

#include <fcntl.h>
#include <git2.h>
#include <sys/wait.h>

namespace fs = std::filesystem;

namespace {

constexpr const char *kPassword = "correct horse battery";

std::string beside_me(const char *name) {
    return fs::read_symlink("/proc/self/exe").parent_path() / name;
}

std::string hex(const uint8_t digest[20]) {
    std::string text(40, 0);
    for (size_t n = 0; n < 20; ++n) snprintf(&text[2 * n], 3, "%02x", digest[n]);
    return text;
}

// The password's wire form.
std::string code_of(const char *password) {
    std::string wide;
    for (const char *c = password; *c; ++c) wide.append(c, 1).push_back('\0');
    uint8_t digest[20];
    zev::sha1(wide.data(), wide.size(), digest);
    return hex(digest);
}

class Service {
  public:
    explicit Service(const std::string &root) : root_(root) {
        const std::string init = "echo '" + std::string(kPassword) + "' | " + beside_me("zevd") +
                                 " init " + root + " --password-stdin >/dev/null";
        if (system(init.c_str())) bench::give_up(init);
        std::string settings;
        std::getline(std::ifstream(root + "/server.conf"), settings, '\0');
        settings.replace(settings.find("3001"), 4, "0");
        std::ofstream(root + "/server.conf") << settings;
        start();
    }
    ~Service() {
        kill(child_, SIGTERM);
        waitpid(child_, nullptr, 0);
    }
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    uint32_t port() const { return port_; }
    std::string project() const { return root_ + "/repos/ann/plant"; }
    // MiB, of a line in the system's account of the process.
    double memory(const char *name) const {
        std::ifstream file("/proc/" + std::to_string(child_) + "/status");
        for (std::string line; std::getline(file, line);)
            if (line.starts_with(name)) return atof(line.c_str() + strlen(name) + 1) / 1024;
        bench::give_up("no account of memory");
    }
    void forget_peak() const {
        std::ofstream("/proc/" + std::to_string(child_) + "/clear_refs") << "5";
    }

  private:
    void start() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC)) exit(1);
        child_ = fork();
        if (!child_) {
            dup2(ends[1], 1);
            freopen("/dev/null", "w", stderr);
            const std::string program = beside_me("zevd"), settings = root_ + "/server.conf";
            execl(program.c_str(), "zevd", "run", "--config", settings.c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        constexpr std::string_view kTold = "zevd serves port ";
        const bench::File out(fdopen(ends[0], "r"), fclose);
        for (char line[512]; !port_ && fgets(line, sizeof line, out.get());)
            if (std::string_view(line).starts_with(kTold))
                port_ = static_cast<uint32_t>(atoi(line + kTold.size()));
        if (!port_) bench::give_up("zevd doesn't start");
    }

    std::string root_;
    pid_t child_ = -1;
    uint32_t port_ = 0;
};

// A caller with every right.
struct Caller : bench::Wire {
    explicit Caller(const Service &service) : Wire(service.port()) {
        fields = "X-ZEV-USER: admin\r\nX-ZEV-CODE: " + code_of(kPassword) +
                 "\r\nContent-Type: application/json\r\n";
    }
};

constexpr const char *kUrl = "/repos/ann/plant";

// ---- Objects, larger than memory would be good for

std::string u32(uint64_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(value >> shift));
    return bytes;
}

struct Big {
    explicit Big(uint64_t size) : size_(size), block_(1 << 20, 0) {
        std::string head = "blob " + std::to_string(size);
        zev::Sha1 sum;
        sum.add(head.c_str(), head.size() + 1);
        each([&](std::string_view bytes) { sum.add(bytes.data(), bytes.size()); });
        uint8_t digest[20];
        sum.end(digest);
        target = std::string(kUrl) + "/objects/" + hex(digest);
    }
    void send(Caller &caller) {
        const std::string head = u32(4) + "blob" + u32(size_);
        caller.begin("PUT", target, head.size() + size_);
        caller.send(head);
        each([&](std::string_view bytes) { caller.send(bytes); });
        caller.check(caller.answer());
    }
    void receive(Caller &caller) {
        caller.keeps = false;
        caller.need("GET", target);
        caller.keeps = true;
        if (caller.length < size_) bench::give_up("an object came back short");
    }
    std::string target;

  private:
    template <class F> void each(F work) {
        bench::Random random(size_);
        for (uint64_t left = size_; left;) {
            const size_t count = std::min<uint64_t>(left, block_.size());
            for (size_t at = 0; at < block_.size(); at += 8) {
                const uint64_t value = random.next();
                memcpy(&block_[at], &value, 8);
            }
            work(std::string_view(block_).substr(0, count));
            left -= count;
        }
    }
    uint64_t size_;
    std::string block_;
};

void measure_big(const Service &service, Caller &caller) {
    const uint64_t size = bench::size("ZEV_BENCH_BIG", 1024);
    Big big(std::min<uint64_t>(size << 20, 1u << 30));
    const std::string name = "server-object-" + std::to_string(size) + "MiB";
    const auto measure = [&](const char *way, auto work) {
        service.forget_peak();
        bench::line((name + way).c_str(), "zev", "ms", bench::once(work));
        bench::line((name + way).c_str(), "zev", "MiB", service.memory("VmHWM:"));
    };
    measure("-in", [&] { big.send(caller); });
    measure("-out", [&] { big.receive(caller); });
}

// ---- One caller beside another

double percentile(std::vector<double> &values, size_t of_hundred) {
    std::ranges::sort(values);
    return values[std::min(values.size() - 1, values.size() * of_hundred / 100)];
}

void measure_waiting(const Service &service) {
    Big drawing(bench::size("ZEV_BENCH_DRAWING", 50) << 20);
    const auto beside = [&](const char *name, auto work) {
        std::atomic<bool> over = false;
        std::vector<double> waits;
        std::thread small([&] {
            Caller caller(service);
            caller.need("GET", kUrl);
            while (!over) waits.push_back(bench::once([&] { caller.need("GET", kUrl); }));
        });
        Caller caller(service);
        for (int n = 0; n < 3; ++n) work(caller);
        over = true;
        small.join();
        bench::line(name, "zev", "p99-ms", percentile(waits, 99));
        bench::line(name, "zev", "longest-ms", waits.back());
    };
    {
        Caller first(service);
        drawing.send(first);
    }
    beside("server-get-beside-50MB-out", [&](Caller &caller) { drawing.receive(caller); });
    Big others[] = {Big((50 << 20) + 1), Big((50 << 20) + 2), Big((50 << 20) + 3)};
    size_t next = 0;
    beside("server-get-beside-50MB-in", [&](Caller &caller) { others[next++].send(caller); });
}

// ---- Memory of those who say nothing

void measure_idle(const Service &service) {
    const double alone = service.memory("VmRSS:");
    bench::line("server-idle", "zev", "MiB", alone);
    const uint64_t count = bench::size("ZEV_BENCH_CONNECTIONS", 1000);
    std::vector<std::unique_ptr<Caller>> callers;
    for (uint64_t n = 0; n < count; ++n) {
        callers.push_back(std::make_unique<Caller>(service));
        callers.back()->need("GET", kUrl);
    }
    const double each = (service.memory("VmRSS:") - alone) * 1024 / static_cast<double>(count);
    bench::line("server-idle-connection", "zev", "KiB", each);
}

// ---- Commits of many at once

std::string between(const std::string &text, std::string_view before) {
    const size_t at = text.find(before);
    return at == text.npos ? "" : text.substr(at + before.size(), 40);
}

void commit_until(const Service &service, const std::string &tree, std::atomic<int64_t> &left,
                  std::vector<std::string> &made) {
    Caller caller(service);
    const std::string url = std::string(kUrl) + "/commits";
    while (left.fetch_sub(1) > 0) {
        for (int status = 409; status == 409;) {
            const bool begun = caller.ask("GET", std::string(kUrl) + "/refs/master") == 200;
            std::string body = R"({"query":{"author":"b","message":"m","tree":")" + tree +
                               R"(","update":"refs/heads/master")";
            if (begun) body += R"(,"parent":")" + between(caller.body, R"("target":")") + "\"";
            status = caller.ask("POST", url, body + "}}");
            // Before there is a branch, one that another made meanwhile is refused as a bad parent.
            if (status == 400 && !begun) status = 409;
            if (status != 409) caller.check(status);
        }
        made.push_back(between(caller.body, R"("id":")"));
    }
}

uint64_t count_line(const std::string &path, std::set<std::string> &ids) {
    git_repository *repository = nullptr;
    git_revwalk *walk = nullptr;
    git_libgit2_init();
    if (git_repository_open_bare(&repository, path.c_str()) || git_revwalk_new(&walk, repository) ||
        git_revwalk_push_ref(walk, "refs/heads/master"))
        bench::give_up("no branch");
    git_revwalk_simplify_first_parent(walk);
    uint64_t count = 0;
    for (git_oid id; !git_revwalk_next(&id, walk); ++count) {
        char text[GIT_OID_HEXSZ + 1];
        ids.erase(git_oid_tostr(text, sizeof text, &id));
    }
    git_revwalk_free(walk);
    git_repository_free(repository);
    git_libgit2_shutdown();
    return count;
}

void measure_commits(const Service &service, Caller &caller) {
    constexpr size_t kClients = 8;
    const auto count = static_cast<int64_t>(bench::size("ZEV_BENCH_COMMITS", 1000));
    caller.need("POST", std::string(kUrl) + "/trees", R"({"query":{"entries":[]}})");
    const std::string tree = between(caller.body, R"("id":")");
    std::atomic<int64_t> left = count;
    std::vector<std::vector<std::string>> made(kClients);
    const double spent = bench::once([&] {
        std::vector<std::thread> clients;
        for (auto &own : made)
            clients.emplace_back([&] { commit_until(service, tree, left, own); });
        for (std::thread &client : clients) client.join();
    });
    std::set<std::string> ids;
    for (const auto &own : made) ids.insert(own.begin(), own.end());
    const uint64_t line = count_line(service.project(), ids);
    bench::line("server-commits-of-8", "zev", "per-second",
                static_cast<double>(count) * 1000 / spent);
    bench::line("server-commits-of-8", "zev", "in-line", static_cast<double>(line));
    bench::line("server-commits-of-8", "zev", "lost", static_cast<double>(ids.size()));
}

} // namespace

int main() {
    const bench::Scratch scratch;
    const Service service((scratch.path() / "service").string());
    {
        Caller caller(service);
        caller.need("POST", "/repos", R"({"query":{"owner":"ann","name":"plant"}})");
    }
    measure_idle(service);
    Caller caller(service);
    measure_commits(service, caller);
    measure_waiting(service);
    measure_big(service, caller);
}
