// Each drawing is written as it is merged, the index once, behind the last.
#include "resolve_merge.hpp"

#include "merge_report.hpp"
#include "merge_state.hpp"
#include "object_names.hpp"

#include <algorithm>

namespace host {

namespace {

// ---- What was given

struct Part {
    std::string_view word;
    std::optional<dxf::Side> Decisions::*side;
};
constexpr Part kParts[] = {{"header", &Decisions::header},
                           {"classes", &Decisions::classes},
                           {"layout", &Decisions::layout}};

uint64_t parse_handle(const std::string &word) try {
    return parse_object(word);
} catch (const Failed &) {
    throw Failed(kInvalid,
                 say("\"%s\" is no handle, as \"zev conflicts DRAWING\" shows them", word));
}

void decide(Decisions &decisions, const std::string &word, dxf::Side side) {
    const auto part = std::ranges::find(kParts, word, &Part::word);
    const bool is_object = part == std::end(kParts);
    const dxf::Side known =
        is_object ? decisions.objects.try_emplace(parse_handle(word), side).first->second
                  : (decisions.*part->side ? *(decisions.*part->side) : side);
    if (known != side) throw Failed(kInvalid, say("\"%s\" is either yours or theirs", word));
    if (!is_object) decisions.*part->side = side;
}

// A side without words behind it is whose all the rest is.
void decide_rest(Decisions &decisions, dxf::Side side) {
    if (decisions.rest && *decisions.rest != side)
        throw Failed(kInvalid, "what is in conflict is either yours or theirs: name the objects");
    decisions.rest = side;
}

} // namespace

MergeWish parse_wish(const std::vector<std::string> &order, const std::vector<std::string> &words,
                     size_t behind_mark) {
    MergeWish wish;
    const size_t handles = words.size() - std::min(behind_mark, words.size()); // at most
    dxf::Side side{};
    bool is_side = false, has_words = false; // it is being named, and what it is to have
    size_t next = 0;
    const auto end_side = [&] {
        if (is_side && !has_words) decide_rest(wish.decisions, side);
        is_side = has_words = false;
    };
    for (const std::string &name : order) {
        if (name != "paths") {
            end_side();
            is_side = name == "--mine" || name == "--theirs";
            side = name == "--mine" ? dxf::Side::ours : dxf::Side::theirs;
            continue;
        }
        const std::string &word = words.at(next++);
        if (is_side && next <= handles && !is_drawing_name(word))
            decide(wish.decisions, word, side), has_words = true;
        else
            wish.paths.push_back(word);
    }
    end_side();
    return wish;
}

namespace {

// ---- Carrying out

class MergeResolution {
  public:
    MergeResolution(Host &host, const WorkingCopy &copy, const MergeWish &wish)
        : host_(host), copy_(copy), wish_(wish),
          index_(wish.dry ? OwnedIndex(check(zIndexHead(copy.repository(), false)))
                          : copy.lock_index()) {}

    int run() {
        Nodes nodes = look(index_.get());
        pick(nodes);
        for (ConflictNode *node : nodes.all()) {
            if (broken() || is_cut_short_) break;
            if (nodes.is_picked(node) && !merge(node)) ++failed_;
        }
        finish();
        stop_on_break(host_.notify);
        if (is_cut_short_) throw Failed(kCanceled, "cancelled");
        return summary(nodes.all().size());
    }

  private:
    void pick(Nodes &nodes) const {
        if (wish_.paths.empty()) nodes.pick_all();
        for (const std::string &path : wish_.paths)
            if (!nodes.pick(copy_, copy_.relative(path)))
                throw Failed(kNotFound,
                             say("%s: has no conflict; \"zev conflicts\" lists them", path));
        const auto picked = std::ranges::count_if(
            nodes.all(), [&](ConflictNode *node) { return nodes.is_picked(node); });
        if (wish_.decisions.names_any() && picked != 1)
            throw Failed(kInvalid, "objects are decided in one drawing at a time; name it");
    }

    // False, and told, where it stays in conflict.
    bool merge(const ConflictNode *node) {
        const std::string path = narrow(zConflictNodePath(node));
        std::string why;
        const auto ways = three_ways(node, why);
        if (!ways) return tell_refused(host_, path, why, wish_.dry, wish_.dry), false;
        try {
            return merge(*ways);
        } catch (const Failed &failed) {
            const bool misnamed = failed.error_class == kNotFound && wish_.decisions.names_any();
            if (misnamed) throw;
            if (failed.error_class == kCanceled) return is_cut_short_ = true, false;
            return tell_refused(host_, path, failed.what(), wish_.dry, wish_.dry), false;
        }
    }

    bool merge(const ThreeWays &ways) {
        DrawingMerge merge(host_, copy_, ways, wish_.decisions);
        if (!merge.is_whole()) {
            tell_unmerged(host_, ways.path, merge.result(), wish_.dry, wish_.dry);
            print_conflicts(host_, ways.path, merge.result(), false);
            return false;
        }
        if (!wish_.dry && merge.write()) displaced_.insert(ways.path);
        merged_[ways.path] = counts_of(merge.result());
        return true;
    }

    // The index, and what there is to say of it.
    void finish() {
        std::set<std::string> paths;
        for (const auto &[path, merge] : merged_) paths.insert(path);
        const std::set<std::string> settled = wish_.dry ? paths : settle(index_.get(), paths);
        failed_ += paths.size() - settled.size();
        for (const std::string &path : settled) {
            tell_merged(host_, path, merged_[path], wish_.dry);
            if (!displaced_.contains(path)) continue;
            host_.out.line(host_.out.paint(Colour::dim, action_column(say("In trash"))) +
                           typed_path(path));
            host_.out.record(Record("action").set(u"action", "trashed").set(u"path", path));
        }
        resolved_ = settled.size();
    }

    int summary(uint64_t all) const {
        if (wish_.dry)
            host_.out.line("nothing was changed");
        else
            host_.out.line(say("%s resolved, %s remain", resolved_, all - resolved_));
        Record record("summary");
        record.set(u"resolved", resolved_).set(u"remain", all - resolved_).set(u"failed", failed_);
        if (wish_.dry) record.set(u"dry_run", true);
        host_.out.record(record);
        return failed_ ? kConflicts : kDone;
    }

    Host &host_;
    const WorkingCopy &copy_;
    const MergeWish &wish_;
    const OwnedIndex index_; // locked unless nothing is to be done
    std::map<std::string, dxf::Merge> merged_;
    std::set<std::string> displaced_;
    uint64_t resolved_ = 0, failed_ = 0;
    bool is_cut_short_ = false; // in the midst of a drawing
};

} // namespace

// The commit of such a merge doesn't name theirs, so that the next one would bring what they added
// to a drawing once more.
static void require_whole_merge(const WorkingCopy &copy) {
    if (const auto merge = unsettled_merge(copy); merge && !merge->whole)
        throw Failed(kOther, "files were left out of this merge; take it back by \"zev merge "
                             "--abort\", and merge again when they are free");
}

int resolve_by_merging(Host &host, const WorkingCopy &copy, const MergeWish &wish) {
    if (!wish.dry) require_whole_merge(copy);
    return MergeResolution(host, copy, wish).run();
}

} // namespace host
