/*
 * xls_currency.cpp -- the currencies that typed amounts and the currency
 * formats offer, as a format writes them, with their placement.
 */
#include "foundation/zuv_uni_string.h"
#include "format/xls_number_format.h"

/* Placement: 0 "$1", 2 "$ 1", 3 "1 $", as the countries write amounts. */
const xls_currency currency_formats[XLS_CURRENCY_COUNT] = {
    {"$", 0},           {"[$$-1004]", 0},    {"[$$-C09]", 0},    {"[$$-1009]", 0},
    {"[$$-2409]", 0},   {"[$$-1409]", 0},    {"[$$-409]", 0},    {"[$$-C0C]", 3},
    {"[$$-83E]", 0},    {"[$$-2C0A]", 2},    {"[$$-340A]", 2},   {"[$$-240A]", 2},
    {"[$$-300A]", 2},   {"[$$-440A]", 0},    {"[$$-80A]", 0},    {"[$$-500A]", 2},
    {"[$£-809]", 0},    {"[$£-452]", 0},     {"[$¥-411]", 0},    {"[$€-42D]", 3},
    {"[$€-403]", 3},    {"[$€-813]", 2},     {"[$€-413]", 2},    {"[$€-1809]", 0},
    {"[$€-2]", 2},      {"[$€-1]", 3},       {"[$€-40B]", 3},    {"[$€-80C]", 3},
    {"[$€-40C]", 3},    {"[$€-140C]", 3},    {"[$€-180C]", 3},   {"[$€-456]", 3},
    {"[$€-C07]", 2},    {"[$€-407]", 3},     {"[$€-1007]", 3},   {"[$€-408]", 3},
    {"[$€-410]", 2},    {"[$€-816]", 3},     {"[$€-243B]", 3},   {"[$€-C3B]", 3},
    {"[$€-203B]", 3},   {"[$€-C0A]", 3},     {"[$€-40A]", 3},    {"[$€-81D]", 3},
    {"[$CHF-1407]", 2}, {"[$Ft-40E]", 3},    {"[$HK$-C04]", 0},  {"[$kr-406]", 2},
    {"[$kr-425]", 3},   {"[$kr-438]", 2},    {"[$kr-414]", 2},   {"[$kr-814]", 2},
    {"[$kr-41D]", 3},   {"[$kr.-40F]", 3},   {"[$Lm-43A]", 0},   {"[$Ls-426]", 2},
    {"[$Lt-427]", 3},   {"[$NT$-404]", 0},   {"[$P-1404]", 0},   {"[$Php-3409]", 0},
    {"[$R-1C09]", 2},   {"[$R-43E]", 0},     {"[$R$ -416]", 0},  {"[$SFr.-100C]", 2},
    {"[$SFr.-807]", 2}, {"[$SFr.-810]", 2},  {"[$SIT-424]", 3},  {"[$TL-41F]", 3},
    {"[$zł-415]", 3}};

const unsigned short* xls_currency_format(int32_t currency, int32_t* placement) {
  if (currency < 0 || currency >= XLS_CURRENCY_COUNT) return nullptr;
  /* Widened once: the engine serves one call at a time.  The longest text
   * has 13 characters. */
  static unsigned short widened[XLS_CURRENCY_COUNT][16];
  unsigned short* text = widened[currency];
  if (!text[0]) utf8_to_ucs2(text, currency_formats[currency].text);
  *placement = currency_formats[currency].placement;
  return text;
}
