// The page is laid out from above: title, legend, overview, enlarged parts, notes. Its height is
// known before anything is written.
#include "picture/changes/diff_svg.hpp"

#include "picture/changes/cloud.hpp"
#include "picture/changes/diff_layers.hpp"
#include "picture/changes/diff_words.hpp"
#include "picture/changes/insets.hpp"
#include "picture/changes/layer_words.hpp"
#include "picture/changes/legend.hpp"
#include "picture/changes/markup.hpp"
#include "picture/svg_text.hpp"
#include "say.hpp"

#include <algorithm>
#include <cmath>

namespace picture {

namespace {

using host::say;

constexpr double kMargin = 40, kInner = Frame::kSide, kGap = 24; // units of the page
constexpr double kTitle = 26, kSmall = 14, kCaptionSize = 13, kLine = 20;
constexpr size_t kCaption = 4; // lines

class Page {
  public:
    Page(const dxf::Content &older, const dxf::Content &newer,
         const std::vector<dxf::ObjectChange> &changes, const DiffOptions &options,
         const Write &write)
        : options_(options), palette_(options.theme),
          diff_(diff_scene(older, newer, changes, options.space)), box_(diff_.box()), frame_(box_),
          regions_(find_regions(diff_)), tooltips_(older, newer), out_(write),
          layers_(diff_, tooltips_, options.theme, out_),
          unseen_(unseen_changes(diff_, older, newer)), counts_(count_marks(diff_)) {
        const bool is_one_sided = older.objects.empty() || newer.objects.empty();
        if (unseen_.contains("LAYER") && !is_one_sided)
            layers_notes_ = layer_notes(older, newer, changes);
    }

    DiffCounts run() {
        for (const auto &[what, count] : unseen_) counts_.unseen += count;
        counts_.regions = regions_.shown.size() + regions_.more;
        lay_out();
        write_head();
        write_overview();
        for (const Inset &inset : insets_) write_inset(inset);
        write_notes();
        out_.put(closing("svg"));
        out_.finish();
        return counts_;
    }

  private:
    // ---- Where everything stands

    void lay_out() {
        overview_y_ = kMargin + kTitle + kSmall + kLine + 2 * kGap;
        insets_y_ = overview_y_ + frame_.height() + kGap;
        const InsetRoom room = inset_room();
        insets_ = lay_out_insets(regions_, box_, frame_, room);
        notes_y_ = insets_y_ + kSmall;
        if (!insets_.empty()) notes_y_ += height_of(insets_, room) + kGap;
        for (const std::string &note : notes_of({diff_, counts_, regions_, unseen_})) wrap(note);
        for (const std::string &note : layers_notes_) wrap(note);
        for (size_t at = 0; at < regions_.shown.size(); ++at)
            if (!has_inset(at)) note_region(at);
        height_ = notes_y_ + static_cast<double>(notes_.size()) * kLine + kMargin - kSmall;
    }

    // All enlarged parts together are to take no more than a share of the picture's time.
    InsetRoom inset_room() {
        constexpr uint64_t kFewPoints = 150'000;
        return {.width = kInner,
                .gap = kGap,
                .line = kLine,
                .points = [this](const Box &part) { return layers_.count_points(part); },
                .most_points = std::max<uint64_t>(kFewPoints, diff_.newer.points.size() / 4),
                .caption =
                    [this](size_t region) {
                        return caption_of(regions_.shown[region], diff_, tooltips_, kCaption);
                    }};
    }

    bool has_inset(size_t region) const {
        return std::any_of(insets_.begin(), insets_.end(),
                           [&](const Inset &inset) { return inset.region == region; });
    }

    void note_region(size_t at) {
        const Region &region = regions_.shown[at];
        std::string text;
        for (const std::string &line : caption_of(region, diff_, tooltips_, kCaption))
            text += (text.empty() ? "" : "; ") + line;
        wrap(std::to_string(at + 1) + ":  " + text);
    }

    // Lines of a note, broken between words.
    void wrap(std::string text) {
        const size_t most = letters(kSmall);
        while (text.size() > most) {
            const size_t blank = text.rfind(' ', most);
            if (blank == text.npos || blank == 0) break;
            notes_.push_back(text.substr(0, blank));
            text.erase(0, blank + 1);
        }
        notes_.push_back(fitted(text, most));
    }

    // ---- What is written

    void put_text(double x, double y, double size, const std::string &text,
                  const std::string &more = {}) {
        out_.put(element("text",
                         attribute("x", x) + attribute("y", y) + attribute("font-size", size) +
                             attribute("fill", hex_of(palette_.ink)) + more,
                         escaped(text)));
    }

    static std::string rectangle(double x, double y, double width, double height) {
        return attribute("x", x) + attribute("y", y) + attribute("width", width) +
               attribute("height", height);
    }
    std::string hairline() const { return attribute("fill", "none") + stroke(palette_.faint, 1); }

    void write_head() {
        const double width = kInner + 2 * kMargin;
        out_.put(opening("svg", attribute("xmlns", "http://www.w3.org/2000/svg") +
                                    attribute("width", width) + attribute("height", height_) +
                                    attribute("viewBox", "0 0 " + pair(width, height_)) +
                                    attribute("font-family", "sans-serif")));
        out_.put(element("title", {}, escaped(options_.title)));
        out_.put(element("rect", rectangle(0, 0, width, height_) +
                                     attribute("fill", hex_of(palette_.ground))));
        put_text(kMargin, kMargin + kTitle * 0.8, kTitle, fitted(options_.title, letters(kTitle)),
                 attribute("font-weight", "bold"));
        const char *versions =
            diff_.newer.is_paper ? "Paper space, from %s to %s" : "from %s to %s";
        put_text(kMargin, kMargin + kTitle + kSmall + 6, kSmall,
                 fitted(say(versions, options_.older, options_.newer), letters(kSmall)));
        const Point samples{kMargin, kMargin + kTitle + kSmall + kGap + kLine - 2};
        out_.put(legend(counts_, palette_, samples, kSmall));
    }

    // How many of a size go into a width.
    static size_t letters(double size, double width = kInner) {
        return static_cast<size_t>(width / (size * kLetter));
    }

    void write_overview() {
        const Point middle{kMargin + kInner / 2, overview_y_ + frame_.height() / 2};
        out_.put(
            element("rect", rectangle(kMargin, overview_y_, kInner, frame_.height()) + hairline()));
        out_.put(opening("g", attribute("transform", "translate(" + pair(middle) + ")")));
        layers_.write_stayed({frame_});
        layers_.write_changed({frame_});
        write_arrows(frame_, 1);
        for (size_t at = 0; at < regions_.shown.size(); ++at) {
            out_.put(opening("g", attribute("class", "cloud")));
            write_cloud(at);
            out_.put(closing("g"));
        }
        out_.put(closing("g"));
    }

    // `size` of a unit of the page in units of the picture.
    void write_arrows(const Frame &frame, double size) {
        constexpr double kHead = 12, kShortest = 10;
        for (const Arrow &arrow : regions_.arrows) {
            const Point from = frame(arrow.from), to = frame(arrow.to);
            const double length = std::hypot(to.x - from.x, to.y - from.y);
            constexpr double kFar = 100 * Frame::kSide;
            if (!(length > kShortest * size) || !(length < kFar)) continue;
            out_.put(
                line_path(attribute("class", "arrow") + stroke(palette_.arrow, kArrowWidth * size),
                          arrow_path(from, to, kHead * size)));
        }
    }

    static Box on_page(const Box &box, const Frame &frame, double edge) {
        Box out;
        out.add(frame(box.low));
        out.add(frame(box.high));
        out.low.x -= edge, out.low.y -= edge, out.high.x += edge, out.high.y += edge;
        return out;
    }

    void write_cloud(size_t at) {
        constexpr double kRadius = 11;
        const Box box = on_page(regions_.shown[at].box, frame_, 9);
        out_.put(line_path(stroke(palette_.cloud, kArrowWidth), cloud_path(box, 16)));
        const auto within = [&](double value, double half) { // the picture
            return std::clamp(value, kRadius + 1 - half, half - kRadius - 1);
        };
        const Point disc{within(box.high.x + 4, frame_.width() / 2),
                         within(box.low.y - 4, frame_.height() / 2)};
        out_.put(numbered_disc(disc, kRadius, at + 1, palette_.cloud, palette_.ground));
    }

    void write_inset(const Inset &inset) {
        const Frame frame(inset.part, 0);
        const double size = frame.width() / inset.width; // of a unit of the page
        const double x = kMargin + inset.x, y = insets_y_ + inset.y;
        const std::string place = rectangle(x, y, inset.width, inset.height);
        out_.put(opening(
            "svg", place + attribute("viewBox", pair(-frame.width() / 2, -frame.height() / 2) +
                                                    " " + pair(frame.width(), frame.height()))));
        layers_.write_stayed({frame, size, &inset.part});
        layers_.write_changed({frame, size, &inset.part});
        write_arrows(frame, size);
        const Box box = on_page(regions_.shown[inset.region].box, frame, 12 * size);
        out_.put(line_path(attribute("class", "cloud") + stroke(palette_.cloud, kArrowWidth * size),
                           cloud_path(box, 22 * size)));
        out_.put(closing("svg"));
        out_.put(element("rect", place + hairline()));
        out_.put(numbered_disc({x, y}, 13, inset.region + 1, palette_.cloud, palette_.ground));
        for (size_t i = 0; i < inset.caption.size(); ++i)
            put_text(x, y + inset.height + kLine * static_cast<double>(i + 1), kCaptionSize,
                     fitted(inset.caption[i], letters(kCaptionSize, inset.width)));
    }

    void write_notes() {
        double y = notes_y_;
        for (const std::string &note : notes_) {
            put_text(kMargin, y, kSmall, note);
            y += kLine;
        }
    }

    const DiffOptions &options_;
    const Palette palette_;
    const DiffScene diff_;
    const Box box_;
    const Frame frame_;
    const Regions regions_;
    Tooltips tooltips_;
    Out out_;
    DiffLayers layers_;
    const std::map<std::string, uint64_t> unseen_;
    DiffCounts counts_;

    double overview_y_ = 0, insets_y_ = 0, notes_y_ = 0, height_ = 0;
    std::vector<Inset> insets_;
    std::vector<std::string> layers_notes_, notes_;
};

} // namespace

DiffCounts write_diff(const dxf::Content &older, const dxf::Content &newer,
                      const std::vector<dxf::ObjectChange> &changes, const DiffOptions &options,
                      const Write &write) {
    return Page(older, newer, changes, options, write).run();
}

} // namespace picture
