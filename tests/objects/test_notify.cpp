#include "support.hpp"

#include "objects/notify/notify.hpp"

using namespace test;

namespace {

struct Host : Notify {
    std::u16string word, text;
    int calls = 0;
    static Host &of(const Notify *notify) {
        return const_cast<Host &>(static_cast<const Host &>(*notify));
    }
};

} // namespace

TEST(Notify, EachCallReachesItsOwnSlotOnly) {
    Host host{};
    host.info = [](auto *n, auto *text) { Host::of(n).text = text, ++Host::of(n).calls; };
    zNotifyWarning(&host, u"%s", u"goes nowhere");
    zNotifyInfo(nullptr, u"%s", u"goes nowhere");
    EXPECT_EQ(host.calls, 0);
    zNotifyInfo(&host, u"%d of %s", 3, u"many");
    EXPECT_EQ(host.text, u"3 of many");
    zNotifyInfo(&host, u"%s", std::u16string(512, u'y').c_str());
    EXPECT_EQ(host.text, std::u16string(511, u'y')); // is cut
    host.start = [](auto *n, auto *heading, auto *text) {
        Host::of(n).word = heading, Host::of(n).text = text;
    };
    zNotifyStart(&host, u"100%s", u"%s", u"50%n");
    EXPECT_EQ(host.word, u"100%s"); // passed on untouched
    EXPECT_EQ(host.text, u"50%n");
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

TEST(Notify, QuestionsWithoutAHost) {
    auto dialog = guard(zTaskDialogNew(), zTaskDialogFree);
    EXPECT_FALSE(zNotifyIsUsrbrk(nullptr));
    EXPECT_EQ(zNotifyShowTaskDialog(zNotifyNull(), dialog.get()), -1);
    EXPECT_EQ(zNotifyShowTaskDialog(nullptr, dialog.get()), -1);
    Host host{};
    host.dialog = [](auto *, auto *shown) { return zTaskButtonId(zTaskDialogButtonAt(shown, 0)); };
    ASSERT_OK(zTaskDialogAddButton(dialog.get(), zTaskButtonNew(7, u"Retry", nullptr)));
    EXPECT_EQ(zNotifyShowTaskDialog(&host, dialog.get()), 7);
}

TEST(Notify, DialogOwnsTextsAndButtons) {
    auto dialog = guard(zTaskDialogNew(), zTaskDialogFree);
    std::u16string title = u"Locked";
    ASSERT_OK(zTaskDialogSetTitle(dialog.get(), title.c_str()));
    title = u"changed";
    ASSERT_OK(zTaskDialogSetTitle(dialog.get(), zTaskDialogTitle(dialog.get()))); // its own
    EXPECT_EQ(narrow(zTaskDialogTitle(dialog.get())), "Locked");
    EXPECT_EQ(zTaskButtonNew(0, u"none", nullptr), nullptr);
    for (int id : {1, 2, 3})
        ASSERT_OK(zTaskDialogAddButton(dialog.get(), zTaskButtonNew(id, u"text", u"why")));
    ASSERT_EQ(zTaskDialogButtonCount(dialog.get()), 3u);
    EXPECT_EQ(narrow(zTaskButtonDesc(zTaskDialogButtonAt(dialog.get(), 2))), "why");
    EXPECT_EQ(zTaskDialogButtonAt(dialog.get(), 3), nullptr);
}
