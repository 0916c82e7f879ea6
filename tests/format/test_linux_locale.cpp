// The locale object built from the process's locale.
#include <gtest/gtest.h>
#include <locale.h>

#include <string>

#include "format/linux_locale.h"

namespace {

std::u16string text(const unsigned short* units) {
  return units ? std::u16string(reinterpret_cast<const char16_t*>(units)) : u"(null)";
}

TEST(LinuxLocale, CLocaleGivesTheNeutralEnglishForm) {
  setlocale(LC_ALL, "C");
  CLinuxKELLocale locale;
  EXPECT_EQ(0, locale.decimal_separator);  // zero until set up
  ASSERT_EQ(0u, locale.setup_locale());
  EXPECT_EQ(u'.', locale.decimal_separator);
  EXPECT_EQ(u',', locale.thousand_separator);  // the C locale has none
  EXPECT_EQ(u'/', locale.date_separator);
  EXPECT_EQ(XLS_DATE_MDY, locale.date_order);
  EXPECT_EQ(u"Sunday", text(locale.day_names[0][0]));
  EXPECT_EQ(u"Dec", text(locale.month_names[11][1]));
  EXPECT_EQ(nullptr, locale.month_names[0][2]);  // one-letter names stay built in
  EXPECT_EQ(u"#N/A", text(locale.error_texts[6]));
  EXPECT_EQ(u"Sheet3", text(locale.sheet_names[XLS_LOCALE_SHEET3]));
  EXPECT_EQ(u"TRUE", text(locale.true_word));

  // Setting up again replaces every string (the sanitizers see any leak).
  ASSERT_EQ(0u, locale.setup_locale());
  EXPECT_EQ(u"Monday", text(locale.day_names[1][0]));
}

}  // namespace
