#include "support.hpp"

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
    host.start = [](auto *n, auto *heading, auto *text) {
        Host::of(n).word = heading, Host::of(n).text = text;
    };
    zNotifyStart(&host, u"100%s", u"%s", u"50%n");
    EXPECT_EQ(host.word, u"100%s"); // passed on untouched
    EXPECT_EQ(host.text, u"50%n");
}

TEST(Notify, TextIsCutAt511) {
    Host host{};
    host.action = [](auto *n, auto *word, auto *text) {
        Host::of(n).word = word, Host::of(n).text = text;
    };
    const std::u16string fits(511, u'x'), longer(512, u'y');
    zNotifyAction(&host, u"w", u"%s", fits.c_str());
    EXPECT_EQ(host.text, fits);
    zNotifyAction(&host, u"w", u"%s", longer.c_str());
    EXPECT_EQ(host.text, longer.substr(0, 511));
}

TEST(Notify, QuestionsWithoutAHost) {
    auto dialog = guard(zTaskDialogNew(), zTaskDialogFree);
    EXPECT_FALSE(zNotifyIsUsrbrk(nullptr));
    EXPECT_FALSE(zNotifyIsUsrbrk(zNotifyNull()));
    EXPECT_EQ(zNotifyShowTaskDialog(zNotifyNull(), dialog.get()), -1);
    EXPECT_EQ(zNotifyShowTaskDialog(nullptr, dialog.get()), -1);
    EXPECT_EQ(zNotifyShowTaskDialog(zNotifyNull(), nullptr), 0);
    EXPECT_EQ(zErrorClass(), 2);
    Host host{};
    host.dialog = [](auto *, auto *shown) { return zTaskButtonId(zTaskDialogButtonAt(shown, 0)); };
    ASSERT_OK(zTaskDialogAddButton(dialog.get(), zTaskButtonNew(7, u"Retry", nullptr)));
    EXPECT_EQ(zNotifyShowTaskDialog(&host, dialog.get()), 7);
}

TEST(Notify, DialogOwnsTextsAndButtons) {
    EXPECT_EQ(zTaskButtonNew(0, u"none", nullptr), nullptr);
    EXPECT_EQ(zTaskButtonNew(1, nullptr, nullptr), nullptr);
    auto dialog = guard(zTaskDialogNew(), zTaskDialogFree);
    EXPECT_EQ(zTaskDialogTitle(dialog.get()), nullptr);
    std::u16string title = u"Locked";
    ASSERT_OK(zTaskDialogSetTitle(dialog.get(), title.c_str()));
    title = u"changed";
    EXPECT_EQ(narrow(zTaskDialogTitle(dialog.get())), "Locked");
    ASSERT_OK(zTaskDialogSetTitle(dialog.get(), zTaskDialogTitle(dialog.get())));
    EXPECT_EQ(narrow(zTaskDialogTitle(dialog.get())), "Locked");
    ASSERT_OK(zTaskDialogSetContent(dialog.get(), u"content"));
    EXPECT_EQ(narrow(zTaskDialogContent(dialog.get())), "content");
    EXPECT_EQ(zTaskDialogInstruction(dialog.get()), nullptr);
    for (int id : {1, 2, 3})
        ASSERT_OK(zTaskDialogAddButton(dialog.get(), zTaskButtonNew(id, u"text", u"why")));
    ASSERT_EQ(zTaskDialogButtonCount(dialog.get()), 3u);
    EXPECT_EQ(zTaskButtonId(zTaskDialogButtonAt(dialog.get(), 2)), 3);
    EXPECT_EQ(narrow(zTaskButtonDesc(zTaskDialogButtonAt(dialog.get(), 0))), "why");
    EXPECT_EQ(zTaskDialogButtonAt(dialog.get(), 3), nullptr);
}

TEST(Notify, CopiesTakeTheSlots) {
    Host host{};
    host.info = [](auto *n, auto *) { ++Host::of(n).calls; };
    auto copy = guard(zNotifyDup(&host), zNotifyFree);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->info, host.info);
    ASSERT_TRUE(zNotifyInit(copy.get()));
    EXPECT_EQ(copy->info, nullptr);
    ASSERT_TRUE(zNotifyCopy(copy.get(), &host));
    EXPECT_EQ(copy->info, host.info);
}
