#include "support.hpp"

#include "objects/notify/notify.hpp"

using namespace test;

namespace {

struct Host : Notify {
    std::u16string text;
    static Host &of(const Notify *notify) {
        return const_cast<Host &>(static_cast<const Host &>(*notify));
    }
};

} // namespace

TEST(Notify, TextsAreFormattedOnceAndCut) {
    Host host{};
    host.info = [](auto *n, auto *text) { Host::of(n).text = text; };
    zNotifyWarning(&host, u"%s", u"no slot");
    zNotifyInfo(nullptr, u"%s", u"nobody");
    EXPECT_EQ(host.text, u"");
    zNotifyInfo(&host, u"%d%s", 3, std::u16string(512, u'y').c_str());
    EXPECT_EQ(host.text, u"3" + std::u16string(510, u'y'));
    host.start = [](auto *n, auto *heading, auto *text) {
        Host::of(n).text = std::u16string(heading) + text;
    };
    zNotifyStart(&host, u"100%s", u"%s", u"50%n"); // a heading is no format
    EXPECT_EQ(host.text, u"100%s50%n");
}

// Also where a log line composed the detail before, and where the host raises on its own.
TEST(Notify, AFailureIsToldByItsMessage) {
    Host host{};
    host.error = [](auto *n, auto *text) {
        Host::of(n).text = text;
        EXPECT_FALSE(zTaskButtonNew(0, u"raises", nullptr));
    };
    (void)zev::logged(zev::raise_exists("beneath"));
    EXPECT_FALSE(zev::notify_error(&host, u"sys.eFailedToReplace_s", u"50%s"));
    const std::u16string message =
        zI18nTextFormat(zI18nCurrentLang(), u"sys.eFailedToReplace_s", u"50%s");
    EXPECT_EQ(host.text, message);
    EXPECT_EQ(zErrorDetail(), message + u": File exists");
}
