// The file-alias list in memory and through a saved store.
#include <gtest/gtest.h>

#include "shell/format_string.h"
#include "support/file_alias_list.h"
#include "support/settings_store.h"
#include "test_root.h"
#include "xml_outline.h"

namespace {

using namespace Marlowen;

TEST(FileAliasListTest, SetReplacesOrAppendsGrowsByTwentyAndSavedListLoadsBackWithRoomForTenMore) {
  auto list = NewFileAliasList(WideString(100, u'g'));
  EXPECT_EQ(list->groupName.size(), kMaxAliasGroupName);
  SetFileAlias(*list, u"home", u"/home/a");
  SetFileAlias(*list, u"home", u"/home/b");
  EXPECT_EQ(list->count, 1);
  EXPECT_EQ(list->capacity, 20);
  EXPECT_EQ(GetFileAlias(*list, u"home"), u"/home/b");
  EXPECT_EQ(GetFileAlias(*list, u"Home"), u"");  // compared exactly
  for (int i = 0; i < 20; ++i) SetFileAlias(*list, FormatString(u"a%d", i), u"p");
  EXPECT_EQ(list->count, 21);
  EXPECT_EQ(list->capacity, 40);
  SetFileAlias(*list, u"long", WideString(300, u'p'));
  EXPECT_EQ(GetFileAlias(*list, u"long").size(), kMaxAliasText);

  testing_support::TestRoot root;
  const std::string file = root.Path("aliases.xml");
  list = NewFileAliasList(u"Files");
  SetFileAlias(*list, u"docs", u"/srv/docs");
  SetFileAlias(*list, u"logs", u"/var/log/app");
  auto store = CreateStore(Utf8ToWide(file));
  SaveFileAliasList(*store, *list);
  ASSERT_TRUE(SaveStore(*store));
  EXPECT_EQ(settings_test::XmlOutline(file),
            "Marlowen_Settings\n  Group name=Files\n    Int name=numFiles: 2\n"
            "    Struct name=files[0]\n      String name=alias: docs\n      String name=path: /srv/docs\n"
            "    Struct name=files[1]\n      String name=alias: logs\n      String name=path: /var/log/app\n");
  store = OpenStore(Utf8ToWide(file));
  auto loaded = NewFileAliasList(u"Files");
  SetFileAlias(*loaded, u"stale", u"/gone");
  LoadFileAliasList(*store, *loaded);
  EXPECT_EQ(loaded->count, 2);
  EXPECT_EQ(loaded->capacity, 12);
  EXPECT_EQ(GetFileAlias(*loaded, u"logs"), u"/var/log/app");
  EXPECT_EQ(GetFileAlias(*loaded, u"stale"), u"");
}

}  // namespace
