// Conflicts: analysed and handed to the host, then carried out as the host decided.
#include "commands/adapter.hpp"
#include "zev/shell.h"

using namespace zev;

ConflictAnalysis *zCommandConflictAnalyze(const zwchar *workdir, const zwchar *path) try {
    const ConnectionUse connection(workdir);
    if (!connection) return nullptr;
    const PathSpecPtr spec(zPathSpecNew(pattern_of(zStrsafeW(path)).c_str(), 0));
    return spec ? zShellConflict(connection.repository(), spec.get()) : nullptr;
} catch (...) {
    return fail_thrown();
}

bool zCommandConflictResolve(const zwchar *workdir, ConflictAnalysis *analysis) {
    const ConnectionUse connection(workdir);
    return connection && zShellResolve(connection.repository(), analysis);
}
