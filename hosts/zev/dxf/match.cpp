// Content first that stands once on either side: those pairs hold the files together. From each of
// them equal content is followed up and down, which tells apart what stands several times; what is
// then left of it goes by order. Records that were edited lie in the gaps: a run of new ones
// without a partner behind a matched one is held against the old ones without one in the same
// place, each against those nearby of its kind, and takes the one it has most groups in common
// with.
#include "dxf/match.hpp"

#include "dxf/hash.hpp"
#include "dxf/normal.hpp"

#include <algorithm>
#include <deque>
#include <future>
#include <unordered_map>

namespace dxf {

namespace {

constexpr size_t kNearby = 32; // old records of a gap that one new record is held against

// Of the text without handles, line ends and blanks.
uint64_t text_hash(std::string_view record) {
    Hash hash;
    RawGroup group;
    while (take_group(record, group)) {
        hash.add(static_cast<uint64_t>(group.code));
        if (value_type(group.code) != ValueType::handle) hash.add(trim_blanks(group.value));
    }
    hash.add(record);
    return hash.value();
}

void hash_texts(std::vector<Matchable> &list) {
    for (Matchable &at : list) at.hash = text_hash(at.record);
}

void hash_others(std::vector<Matchable> &list, const std::vector<uint64_t> &texts) {
    NormalRecord normal;
    for (Matchable &at : list) {
        if (std::binary_search(texts.begin(), texts.end(), at.hash)) continue;
        normal.read(at.record);
        at.hash = normal.content_hash();
    }
}

std::vector<uint64_t> sorted_hashes(const std::vector<Matchable> &list) {
    std::vector<uint64_t> out;
    out.reserve(list.size());
    for (const Matchable &at : list) out.push_back(at.hash);
    std::sort(out.begin(), out.end());
    return out;
}

class Pairing {
  public:
    Pairing(const std::vector<Matchable> &olds, const std::vector<Matchable> &news)
        : olds_(olds), news_(news), of_new_(news.size(), kNoPartner),
          of_old_(olds.size(), kNoPartner) {}

    std::vector<size_t> run() {
        pair_unique();
        follow();
        pair_by_order();
        follow();
        fill_gaps();
        return std::move(of_new_);
    }

  private:
    void pair(size_t new_place, size_t old_place) {
        of_new_[new_place] = old_place;
        of_old_[old_place] = new_place;
    }

    bool is_free(size_t new_place, size_t old_place) const {
        return of_new_[new_place] == kNoPartner && of_old_[old_place] == kNoPartner;
    }

    using Places = std::vector<std::pair<uint64_t, size_t>>; // by hash

    static Places places_of(const std::vector<Matchable> &list) {
        Places out;
        out.reserve(list.size());
        for (size_t i = 0; i < list.size(); ++i) out.emplace_back(list[i].hash, i);
        std::sort(out.begin(), out.end());
        return out;
    }

    // Behind those of the same hash.
    static size_t end_of_run(const Places &places, size_t at) {
        const uint64_t hash = places[at].first;
        while (at < places.size() && places[at].first == hash) ++at;
        return at;
    }

    void pair_unique() {
        const Places olds = places_of(olds_), news = places_of(news_);
        for (size_t i = 0, j = 0; i < olds.size() && j < news.size();) {
            const size_t next_old = end_of_run(olds, i), next_new = end_of_run(news, j);
            const bool is_common = olds[i].first == news[j].first;
            if (is_common && next_old == i + 1 && next_new == j + 1)
                pair(news[j].second, olds[i].second);
            const bool goes_old = olds[i].first <= news[j].first;
            const bool goes_new = news[j].first <= olds[i].first;
            if (goes_old) i = next_old;
            if (goes_new) j = next_new;
        }
    }

    // From each pair on, down the lists and up.
    void follow() {
        for (size_t i = 0; i + 1 < news_.size(); ++i)
            if (of_new_[i] != kNoPartner) join(i + 1, of_new_[i] + 1);
        for (size_t i = news_.size(); i-- > 1;)
            if (of_new_[i] != kNoPartner && of_new_[i] > 0) join(i - 1, of_new_[i] - 1);
    }

    void join(size_t new_place, size_t old_place) {
        if (old_place < olds_.size() && is_free(new_place, old_place) &&
            olds_[old_place].hash == news_[new_place].hash)
            pair(new_place, old_place);
    }

    void pair_by_order() {
        std::unordered_map<uint64_t, std::vector<size_t>> left; // places from the last one down
        for (size_t i = olds_.size(); i-- > 0;)
            if (of_old_[i] == kNoPartner) left[olds_[i].hash].push_back(i);
        for (size_t i = 0; i < news_.size(); ++i) {
            if (of_new_[i] != kNoPartner) continue;
            const auto at = left.find(news_[i].hash);
            if (at == left.end() || at->second.empty()) continue;
            pair(i, at->second.back());
            at->second.pop_back();
        }
    }

    void fill_gaps() {
        for (size_t i = 0; i < news_.size();) {
            if (of_new_[i] != kNoPartner) {
                ++i;
                continue;
            }
            size_t end = i;
            while (end < news_.size() && of_new_[end] == kNoPartner) ++end;
            fill_gap(i, end);
            i = end;
        }
    }

    // New ones from `begin` to `end`. The old gap lies behind the partner of the one in front, or
    // else in front of the partner of the one behind.
    void fill_gap(size_t begin, size_t end) {
        size_t first = begin ? of_new_[begin - 1] + 1 : 0, last = first;
        while (last < olds_.size() && of_old_[last] == kNoPartner) ++last;
        if (first == last && end < news_.size()) {
            last = first = of_new_[end];
            while (first > 0 && of_old_[first - 1] == kNoPartner) --first;
        }
        if (first == last) return;
        pair_nearby(begin, end, first, last);
    }

    // Order is kept: no pair crosses another one. Of the old ones no more are passed over than
    // there are too many, so that none is left for want of one.
    void pair_nearby(size_t begin, size_t end, size_t first, size_t last) {
        std::deque<NormalRecord> candidates; // from `first` on
        NormalRecord wanted;
        for (size_t i = begin; i < end && first < last; ++i) {
            while (candidates.size() < std::min(kNearby, last - first))
                candidates.emplace_back(olds_[first + candidates.size()].record);
            wanted.read(news_[i].record);
            const size_t needed = end - i,
                         spare = last - first > needed ? last - first - needed : 0;
            const size_t best = best_of(wanted, candidates, spare);
            if (best == kNoPartner) continue;
            pair(i, first + best);
            first += best + 1;
            candidates.erase(candidates.begin(),
                             candidates.begin() + static_cast<std::ptrdiff_t>(best + 1));
        }
    }

    static size_t best_of(const NormalRecord &wanted, const std::deque<NormalRecord> &candidates,
                          size_t spare) {
        size_t best = kNoPartner, most = 0;
        for (size_t i = 0; i < candidates.size(); ++i) {
            if (candidates[i].kind() != wanted.kind()) continue;
            if (best != kNoPartner && i > spare) break;
            const size_t shared = wanted.shared_groups(candidates[i]);
            if (best != kNoPartner && shared <= most) continue;
            best = i;
            most = shared;
        }
        return best;
    }

    const std::vector<Matchable> &olds_, &news_;
    std::vector<size_t> of_new_, of_old_;
};

} // namespace

void hash_records(std::vector<Matchable> &olds, std::vector<Matchable> &news) {
    auto texts = std::async(std::launch::async, [&] {
        hash_texts(olds);
        return sorted_hashes(olds);
    });
    hash_texts(news);
    const std::vector<uint64_t> of_news = sorted_hashes(news), of_olds = texts.get();
    auto others = std::async(std::launch::async, [&] { hash_others(olds, of_news); });
    hash_others(news, of_olds);
    others.get();
}

Likeness likeness_of(const std::vector<Matchable> &olds, const std::vector<Matchable> &news) {
    std::vector<std::pair<uint64_t, uint64_t>> hash_of; // by handle, which files choose
    hash_of.reserve(olds.size());
    for (const Matchable &at : olds) hash_of.emplace_back(at.handle, at.hash);
    std::sort(hash_of.begin(), hash_of.end());
    Likeness likeness;
    for (const Matchable &at : news)
        likeness.in_place +=
            std::binary_search(hash_of.begin(), hash_of.end(), std::pair(at.handle, at.hash));
    const std::vector<uint64_t> a = sorted_hashes(olds), b = sorted_hashes(news);
    for (size_t i = 0, j = 0; i < a.size() && j < b.size();) {
        if (a[i] == b[j])
            ++likeness.common, ++i, ++j;
        else if (a[i] < b[j])
            ++i;
        else
            ++j;
    }
    return likeness;
}

std::vector<size_t> pair_by_content(const std::vector<Matchable> &olds,
                                    const std::vector<Matchable> &news) {
    return Pairing(olds, news).run();
}

} // namespace dxf
