// By the library's texts: its numbers say less.
#include "plain_words.hpp"

#include "copy.hpp"
#include "remote_copy.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr int kNoSuch = 404, kConflict = 409, kUnavailable = 503;
constexpr uintmax_t kLittle = 64u << 20; // bytes; four packs as they are asked for

std::string text_of(const zwchar *key) { return narrow(zI18nTextLookup(zI18nCurrentLang(), key)); }

// The project of the copy around here; empty where there is none.
std::string project() try { return origin_of(WorkingCopy()); } catch (const std::exception &) {
    return {};
}

Failed remade() {
    const std::string url = project();
    return Failed(kNetwork, kConflict,
                  say("%1$s: is another project by now, made after this copy's was deleted; your "
                      "files stay here, and \"zev get %1$s DIRECTORY\" makes a copy of the new one",
                      url));
}

// "SUMMARY: 404: WHAT ISN'T THERE: WHAT 404 MEANS": the third of these is what counts. The summary
// of a session's first request gives way to the address, any other stays.
Failed absent(const Failed &failed) {
    constexpr std::string_view kMark = "404: ";
    const std::string text = failed.what(), general = ": " + text_of(u"http.404");
    const size_t mark = text.find(kMark);
    if (mark == text.npos) return failed;
    std::string what = text.substr(mark + kMark.size());
    if (const size_t tail = what.find(general); tail != what.npos) what.erase(tail, general.size());
    std::string front = text.substr(0, mark);
    if (front == text_of(u"net.eFailedToFetchSummary") + ": ") front = project() + ": ";
    return Failed(failed.error_class, failed.code, front + what);
}

// An answer that found no room is none, as one that never came.
Failed unavailable(const Failed &failed) {
    std::error_code error;
    const fs::path temporary = fs::temp_directory_path(error);
    if (error || fs::space(temporary, error).available >= kLittle || error) return failed;
    return Failed(failed.error_class, failed.code,
                  say("%s; nor is there much room in %s, which a transfer needs", failed.what(),
                      temporary.string()));
}

} // namespace

bool is_no_space(const Failed &failed) {
    return std::strstr(failed.what(), strerrordesc_np(ENOSPC)) ||
           std::strstr(failed.what(), strerrordesc_np(EDQUOT));
}

// Of the two devices the one with less room.
Failed no_space_for(fs::path copy) {
    std::error_code none, error;
    while (!fs::exists(copy, none) && copy.has_relative_path()) copy = copy.parent_path();
    const fs::path temporary = fs::temp_directory_path(none);
    const uintmax_t left = fs::space(temporary, error).available;
    const bool other = !error && left < fs::space(copy, error).available && !error;
    return Failed(kSystem, ENOSPC,
                  say("no space is left on the device of %s; make room, and do it again",
                      (other ? temporary : copy).string()));
}

Failed in_plain_words(const Failed &failed, Output &out) {
    const std::string_view text = failed.what();
    const auto tells = [&](const zwchar *key) {
        const std::string words = text_of(key);
        return !words.empty() && text.find(words) != text.npos;
    };
    if (failed.error_class != kNetwork) return failed;
    if (failed.code == kUnavailable) return unavailable(failed);
    const bool is_remade = tells(u"net.eUnmatchedRepositoryId"), is_full = tells(u"srv.eNoSpace");
    if (!is_remade && !is_full && failed.code != kNoSuch) return failed;
    out.drop_reason();
    if (is_remade) return remade();
    if (is_full)
        return Failed(kNetwork, failed.code,
                      "no space is left on the device of the server, which took nothing of this; "
                      "its administrator can make room");
    return absent(failed);
}

} // namespace host
