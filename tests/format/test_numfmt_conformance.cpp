// Compares the formatter with the number-format cases of an independent
// library that copies the leading spreadsheet program
// (../shared/oracle/numfmt/cases.tsv).  Our formatter keeps habits of its
// own, so many cases differ; every difference must be accounted for by one
// or two of the named rules below, each tied to a strict test of the format
// and value, or the test fails.
//
// A rule either replays what the other program does through our formatter
// (it scales by commas, honours conditions, shows the zero section...), or
// turns the expected text into what our habit gives (drop the last run of
// optional decimals, blank a fraction whose denominator is 10^n...).  A
// difference is explained when some rules, each applicable, make the
// expected text and ours equal.
#include <gtest/gtest.h>
#include <math.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "format/xls_number_format.h"
#include "test_support.h"

namespace {

struct Case {
  std::string source, format;
  double value;
  std::string expected;
};

std::string unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      char next = text[++i];
      out += next == 't' ? '\t' : next == 'n' ? '\n' : next;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string utf8_of(const unsigned short* text) {
  std::string out;
  for (; *text; ++text) {
    unsigned c = *text;
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

// Our text for a format, by the form without a width.
std::string ours(const std::string& format, double value) {
  std::u16string wide = tabulon_test::u16(format);
  unsigned short out[XLS_FORMAT_BUFFER_SIZE];
  DRGBValue colour;
  xls_print_formatted_number(value, false, nullptr,
                             reinterpret_cast<const unsigned short*>(wide.c_str()), out, &colour);
  return utf8_of(out);
}

std::string sprintf_string(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string sprintf_string(const char* format, ...) {
  char buffer[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  return buffer;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_placeholder(char c) { return c == '0' || c == '#' || c == '?'; }

// ---- Reading formats, independently of the formatter --------------------

// The sections of a format, split at ";" outside quotes, escapes and
// brackets.
std::vector<std::string> sections_of(const std::string& format) {
  std::vector<std::string> sections(1);
  for (size_t i = 0; i < format.size(); ++i) {
    char c = format[i];
    if (c == '\\' && i + 1 < format.size()) {
      sections.back() += format.substr(i, 2);
      ++i;
    } else if (c == '"') {
      size_t end = format.find('"', i + 1);
      if (end == std::string::npos) end = format.size() - 1;
      sections.back() += format.substr(i, end - i + 1);
      i = end;
    } else if (c == '[') {
      size_t end = format.find(']', i);
      if (end == std::string::npos) end = format.size() - 1;
      sections.back() += format.substr(i, end - i + 1);
      i = end;
    } else if (c == ';') {
      sections.emplace_back();
    } else {
      sections.back() += c;
    }
  }
  return sections;
}

// The bracket contents of a section, in order.
std::vector<std::string> brackets_of(const std::string& section) {
  std::vector<std::string> found;
  for (size_t i = 0; i < section.size(); ++i) {
    if (section[i] == '\\') ++i;
    else if (section[i] == '"') i = section.find('"', i + 1);
    else if (section[i] == '[') {
      size_t end = section.find(']', i);
      if (end == std::string::npos) break;
      found.push_back(section.substr(i + 1, end - i - 1));
      i = end;
    }
    if (i == std::string::npos) break;
  }
  return found;
}

bool is_condition(const std::string& bracket) {
  return !bracket.empty() && (bracket[0] == '<' || bracket[0] == '>' || bracket[0] == '=');
}

// A section with its text hidden: quoted text and escaped characters become
// '\1' (one each), brackets vanish.  What stays is what the format means.
std::string bare(const std::string& section) {
  std::string out;
  for (size_t i = 0; i < section.size(); ++i) {
    char c = section[i];
    if (c == '\\' && i + 1 < section.size()) {
      out += '\1';
      ++i;
    } else if (c == '"') {
      size_t end = section.find('"', i + 1);
      if (end == std::string::npos) end = section.size();
      out += '\1';
      i = end;
    } else if (c == '[') {
      size_t end = section.find(']', i);
      if (end == std::string::npos) end = section.size();
      i = end;
    } else {
      out += c;
    }
  }
  return out;
}

// A bare section without its General words, whose letters have no role.
std::string without_general(const std::string& bare_section) {
  std::string out = bare_section;
  for (size_t at; (at = out.find("General")) != std::string::npos;) out.erase(at, 7);
  return out;
}

// The section our formatter shows for value: the second for a negative
// value unless it is missing or "@".
size_t our_section(const std::vector<std::string>& sections, double value) {
  return value < 0 && sections.size() > 1 && sections[1] != "@" ? 1 : 0;
}

// The number field of a bare section: counts of placeholders.
struct Field {
  int integer_zeros = 0, integer_hashes = 0;
  int zero_decimals = 0, optional_decimals = 0;
  bool point = false, zero_after_hash = false, hash_after_zero = false;
};
Field field_of(const std::string& bare_section) {
  Field f;
  bool seen_zero = false, seen_hash = false;
  for (char c : bare_section) {
    if (c == 'E' || c == 'e' || c == '/') break;
    if (c == '.') {
      f.point = true;
      seen_hash = false;
    } else if (!f.point) {
      if (c == '0') ++f.integer_zeros, seen_zero = true;
      else if (c == '#') {
        ++f.integer_hashes;
        if (seen_zero) f.hash_after_zero = true;
      }
    } else {
      if (c == '0') {
        ++f.zero_decimals;
        if (seen_hash) f.zero_after_hash = true;
      } else if (c == '#') {
        ++f.optional_decimals;
        seen_hash = true;
      }
    }
  }
  return f;
}

bool is_general_format(const std::string& format) {
  std::string lower;
  for (char c : format) lower += static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return format.empty() || lower == "general" || format == "@";
}

// A number shown in fixed or scientific form, with what it says of its own
// precision: a text without a number, or with anything but a sign, digits,
// group commas, a point and an exponent, gives false.
struct Shown {
  bool negative = false;
  double number = 0;
  double half_unit = 0;  // half a unit of the last digit shown
  std::string mantissa, exponent;  // exponent with its letter, or empty
};
bool parse_shown(const std::string& text, Shown* shown) {
  std::string t = text;
  while (!t.empty() && t.back() == ' ') t.pop_back();
  while (!t.empty() && t[0] == ' ') t.erase(0, 1);
  if (!t.empty() && t[0] == '-') shown->negative = true, t.erase(0, 1);
  size_t e = t.find_first_of("Ee");
  shown->mantissa = t.substr(0, e);
  shown->exponent = e == std::string::npos ? "" : t.substr(e);
  std::string digits;
  int decimals = -1;
  for (char c : shown->mantissa) {
    if (is_digit(c)) {
      digits += c;
      if (decimals >= 0) ++decimals;
    } else if (c == '.' && decimals < 0) {
      decimals = 0;
      digits += c;
    } else if (c != ',') {
      return false;
    }
  }
  if (digits.empty() || digits == ".") return false;
  int power = 0;
  if (!shown->exponent.empty()) {
    if (shown->exponent.size() < 2) return false;
    char* end;
    power = static_cast<int>(strtol(shown->exponent.c_str() + 1, &end, 10));
    if (*end) return false;
  }
  shown->number = strtod(digits.c_str(), nullptr) * pow(10.0, power);
  shown->half_unit = 0.5 * pow(10.0, power - (decimals > 0 ? decimals : 0));
  return true;
}

// Whether text shows value to the precision it shows.
bool shows(const std::string& text, double value) {
  Shown shown;
  if (!parse_shown(text, &shown) || shown.negative != (value < 0)) return false;
  return fabs(shown.number - fabs(value)) <= shown.half_unit * (1 + 1e-9) + fabs(value) * 1e-15;
}

// The convergent a fraction field shows: the last whose denominator is at
// most maximum, computed here on its own.
void best_convergent(double x, double maximum, double* p, double* q) {
  double h0 = 0, h1 = 1, k0 = 1, k1 = 0, a_rest = x, b_rest = 1;
  *p = 1, *q = 0;
  for (int i = 0; i < 64; ++i) {
    double a = trunc(a_rest / b_rest);
    double h = a * h1 + h0, k = a * k1 + k0;
    if (k > maximum || h > 2147483647.0) return;
    h0 = h1, h1 = h, k0 = k1, k1 = k;
    *p = h, *q = k;
    double rest = a_rest - a * b_rest;
    a_rest = b_rest, b_rest = rest;
    if (!(b_rest > 1e-10)) return;
  }
}

// A fraction section "[int] ?/?" as our formatter lays it out: the integer
// placeholders, the literal between, the numerator's and the denominator's
// "?" counts.
struct FractionLayout {
  std::string integer;      // "#", "0", "" for an improper fraction
  std::string between;      // literal text between integer and numerator
  int numerator_width = 0;  // "0" and "?" before the "/" (integer's included)
  int n = 0;                // "?" after the "/"
};
bool fraction_layout(const std::string& section, FractionLayout* layout) {
  size_t slash = section.find('/');
  if (slash == std::string::npos) return false;
  size_t end = slash + 1;
  while (end < section.size() && section[end] == '?') ++end;
  layout->n = static_cast<int>(end - slash - 1);
  if (!layout->n || end != section.size()) return false;
  size_t numerator = slash;
  while (numerator > 0 && (section[numerator - 1] == '?' || section[numerator - 1] == '0' ||
                           section[numerator - 1] == '#'))
    --numerator;
  std::string head = section.substr(0, numerator);
  size_t integer_end = head.find_first_not_of("#0?");
  if (integer_end == std::string::npos) integer_end = head.size();
  layout->integer = head.substr(0, integer_end);
  layout->between = head.substr(integer_end);
  if (layout->between.find_first_not_of(' ') != std::string::npos) return false;
  if (layout->integer.empty() && !layout->between.empty()) return false;
  layout->numerator_width = 0;
  for (char c : section.substr(0, slash))
    if (c == '0' || c == '?') ++layout->numerator_width;
  return slash > numerator;
}

// What our formatter shows in front of a fraction field: sign, integer part
// (nothing for 0 under "#"), the literal between.
std::string fraction_head(const FractionLayout& layout, double value) {
  std::string head = value < 0 ? "-" : "";
  double whole = trunc(fabs(value));
  if (layout.integer.empty()) return head;
  if (whole != 0 || layout.integer.find('0') != std::string::npos)
    head += sprintf_string("%.0f", whole);
  return head + layout.between;
}

// ---- The rules ------------------------------------------------------------

// What a rule sees: the case as our formatter reads it, after any replayed
// rule has changed format or value.
struct Context {
  std::string format;
  double value;
  std::vector<std::string> sections;
  std::string section;  // the one our formatter shows, raw
  std::string bare;     // ... with text hidden and brackets gone
  Field field;
};
Context context_of(const std::string& format, double value) {
  Context c;
  c.format = format;
  c.value = value;
  c.sections = sections_of(format);
  if (c.sections.size() > 2) c.sections.resize(2);
  c.section = c.sections[our_section(c.sections, value)];
  c.bare = bare(c.section);
  c.field = field_of(c.bare);
  return c;
}

// Replays: the other program's reading, as a changed format or value.
struct Replay {
  const char* name;
  std::function<bool(std::string*, double*)> apply;
};

// Turns the expected text into what our habit makes of it; false when the
// rule doesn't apply or the text isn't what the rule is about.
struct Habit {
  const char* name;
  std::function<bool(const Context&, const std::string&, std::string*)> apply;
};

// Whether value meets a condition such as "<=9999999".
bool condition_holds(const std::string& condition, double value) {
  size_t op_end = condition.find_first_not_of("<>=");
  std::string op = condition.substr(0, op_end);
  double limit = strtod(condition.c_str() + op_end, nullptr);
  if (op == "<") return value < limit;
  if (op == "<=") return value <= limit;
  if (op == ">") return value > limit;
  if (op == ">=") return value >= limit;
  if (op == "=") return value == limit;
  if (op == "<>") return value != limit;
  return false;
}

const std::vector<Replay>& replays() {
  static const std::vector<Replay> list = {
      {"a third section (zero) is dropped: 0 shows in the first",
       [](std::string* format, double* value) {
         std::vector<std::string> sections = sections_of(*format);
         if (sections.size() < 3 || *value != 0 || bare(sections[2]).find('@') != std::string::npos)
           return false;
         *format = sections[2];
         return true;
       }},
      // The other program takes the first section whose condition holds,
      // or else the first without a condition after the conditional ones.
      {"conditions are ignored: the sign alone chooses the section",
       [](std::string* format, double* value) {
         std::vector<std::string> sections = sections_of(*format);
         bool any = false;
         for (size_t i = 0; i < sections.size() && i < 2; ++i)
           for (const std::string& b : brackets_of(sections[i])) any |= is_condition(b);
         if (!any) return false;
         for (size_t i = 0; i < sections.size(); ++i) {
           std::string condition;
           for (const std::string& b : brackets_of(sections[i]))
             if (is_condition(b)) condition = b;
           if (condition.empty() || condition_holds(condition, *value)) {
             *format = sections[i];
             return true;
           }
         }
         return false;
       }},
      {"commas never scale: a comma behind the digits groups them",
       [](std::string* format, double* value) {
         // Commas after a placeholder and before no other placeholder scale
         // by 1000 each in the other program.
         std::string out;
         int scaling = 0;
         for (size_t i = 0; i < format->size(); ++i) {
           char c = (*format)[i];
           if (c == '\\' || c == '"' || c == '[') {
             size_t end = c == '\\' ? i + 1 : format->find(c == '"' ? '"' : ']', i + 1);
             if (end == std::string::npos) end = format->size() - 1;
             out += format->substr(i, end - i + 1);
             i = end;
             continue;
           }
           if (c == ',' && i > 0 && is_placeholder((*format)[i - 1])) {
             size_t end = format->find_first_not_of(',', i);
             if (end == std::string::npos || !is_placeholder((*format)[end])) {
               scaling += static_cast<int>((end == std::string::npos ? format->size() : end) - i);
               i = (end == std::string::npos ? format->size() : end) - 1;
               continue;
             }
           }
           out += c;
         }
         if (!scaling) return false;
         *format = out;
         *value /= pow(1000.0, scaling);
         return true;
       }},
      {"digits 1 to 9 and letters without a role show nothing",
       [](std::string* format, double*) {
         if (format->find('[') != std::string::npos || is_general_format(*format)) return false;
         static const std::string kRoles = "EeGdDmMhHsSyYaApPbB";
         std::string out;
         bool changed = false;
         for (size_t i = 0; i < format->size(); ++i) {
           char c = (*format)[i];
           if (c == '\\' || c == '"') {
             size_t end = c == '\\' ? i + 1 : format->find('"', i + 1);
             if (end == std::string::npos) return false;
             out += format->substr(i, end - i + 1);
             i = end;
           } else if ((c >= '1' && c <= '9') ||
                      (isalpha(static_cast<unsigned char>(c)) && kRoles.find(c) == std::string::npos)) {
             out += '\\';
             out += c;
             changed = true;
           } else {
             out += c;
           }
         }
         *format = out;
         return changed;
       }},
      {"digit patterns take the integer part, unrounded",
       [](std::string* format, double* value) {
         std::string first = sections_of(*format)[0];
         std::string core = bare(first);
         if (core.find_first_not_of("0#$-+/():\1 ") != std::string::npos ||
             core.find_first_not_of("0#") == std::string::npos)
           return false;
         if (*value < 0 || *value - trunc(*value) < 0.5) return false;
         *value = trunc(*value) + 1;
         return true;
       }},
  };
  return list;
}

// A section whose number field a literal splits ("###\\-##0", "0\"x\"0"): our
// text for it is the number of the placeholders before the literal, then
// the literals of the rest.  literals receives every literal text of the
// section in order.
bool split_number(const Context& c, std::string* text, std::vector<std::string>* literals) {
  const std::string& s = c.section;
  if (s.find('[') != std::string::npos) return false;
  bool placeholder = false, later_placeholder = false;
  size_t split = std::string::npos;
  std::string rest;
  for (size_t i = 0; i < s.size(); ++i) {
    char ch = s[i];
    if (is_placeholder(ch) || ch == '.' || ch == ',') {
      if (split != std::string::npos) later_placeholder = true;
      placeholder = true;
      continue;
    }
    size_t start = i;
    std::string literal;
    if (ch == '\\' && i + 1 < s.size()) {
      literal = s.substr(++i, 1);
    } else if (ch == '"') {
      size_t end = s.find('"', i + 1);
      if (end == std::string::npos) return false;
      literal = s.substr(i + 1, end - i - 1);
      i = end;
    } else if (ch == ' ' || ch == '/') {
      literal = std::string(1, ch);
    } else {
      return false;
    }
    if (placeholder && split == std::string::npos) split = start;
    if (split != std::string::npos) rest += literal;
    literals->push_back(literal);
  }
  if (split == std::string::npos || !later_placeholder) return false;
  *text = ours(s.substr(0, split), c.value) + rest;
  return true;
}

// Our scientific form of value with digits decimals: printf, a point even
// without decimals, zeros past fourteen, one zero less in a first "00".
std::string our_scientific(double value, int digits, char letter) {
  std::string text = sprintf_string(letter == 'e' ? "%.*e" : "%.*E", digits > 14 ? 14 : digits,
                                    fabs(value));
  size_t e = text.find(letter);
  if (digits == 0 && text[1] != '.') text.insert(1, "."), ++e;
  if (digits > 14) text.insert(e, std::string(digits - 14, '0')), e += digits - 14;
  size_t pair = text.find("00", e + 1);
  if (pair != std::string::npos) text.erase(pair, 1);
  return text;
}

const std::vector<Habit>& habits() {
  static const std::vector<Habit> list = {
      {"General without a width: up to nine decimals from 1e-9 below 1e11",
       [](const Context& c, const std::string& expected, std::string* out) {
         double magnitude = fabs(c.value);
         if (!is_general_format(c.format) || magnitude < 1e-9 || magnitude >= 1e11) return false;
         if (!shows(expected, c.value)) return false;
         std::string text = sprintf_string("%.9f", c.value);
         text.erase(text.find_last_not_of('0') + 1);
         if (text.back() == '.') text.pop_back();
         *out = text;
         return true;
       }},
      {"General without a width keeps one significant digit in scientific form",
       [](const Context& c, const std::string& expected, std::string* out) {
         double magnitude = fabs(c.value);
         if (!is_general_format(c.format) || (magnitude >= 1e-9 && magnitude < 1e11)) return false;
         if (!shows(expected, c.value)) return false;
         *out = sprintf_string("%.0E", c.value);
         return true;
       }},
      {"optional decimals drop their last run of non-zero digits",
       [](const Context& c, const std::string& expected, std::string* out) {
         const Field& f = c.field;
         if (!f.optional_decimals || f.zero_after_hash || c.bare.find_first_of("Ee/") != std::string::npos)
           return false;
         size_t point = expected.find('.');
         if (point == std::string::npos) return false;
         size_t end = point + 1;
         while (end < expected.size() && is_digit(expected[end])) ++end;
         std::string decimals = expected.substr(point + 1, end - point - 1);
         int total = f.zero_decimals + f.optional_decimals;
         if (static_cast<int>(decimals.size()) < f.zero_decimals ||
             static_cast<int>(decimals.size()) > total)
           return false;
         std::string all = decimals + std::string(total - decimals.size(), '0');
         std::string optional = all.substr(f.zero_decimals);
         size_t keep = optional.size();
         while (keep > 0 && optional[keep - 1] != '0') --keep;
         std::string ours = all.substr(0, f.zero_decimals) + optional.substr(0, keep);
         if (ours == decimals) return false;
         *out = expected.substr(0, point + 1) + ours + expected.substr(end);
         return true;
       }},
      {"zeros that pad the integer part are not grouped",
       [](const Context& c, const std::string& expected, std::string* out) {
         if (!c.field.integer_zeros || c.bare.find(',') == std::string::npos) return false;
         size_t start = expected.find_first_of("0123456789");
         if (start == std::string::npos || expected[start] != '0') return false;
         size_t end = expected.find_first_not_of("0,", start);
         if (end == std::string::npos) end = expected.size();
         std::string pad = expected.substr(start, end - start);
         std::string plain;
         for (char ch : pad)
           if (ch != ',') plain += ch;
         if (plain == pad) return false;
         *out = expected.substr(0, start) + plain + expected.substr(end);
         return true;
       }},
      {"scientific form: the mantissa keeps one integer digit",
       [](const Context& c, const std::string& expected, std::string* out) {
         size_t e = c.bare.find_first_of("Ee");
         if (e == std::string::npos || c.bare.find_first_of("0#") > e) return false;
         Shown shown;
         if (!parse_shown(expected, &shown) || shown.exponent.empty() || !shows(expected, c.value))
           return false;
         size_t point = shown.mantissa.find('.');
         if ((point == std::string::npos ? shown.mantissa.size() : point) < 2) return false;
         // Ours, with the exponent written the other program's way.
         std::string mine = our_scientific(c.value, c.field.zero_decimals + c.field.optional_decimals,
                                           c.bare[e]);
         size_t letter = mine.find(c.bare[e]);
         int power = atoi(mine.c_str() + letter + 1);
         *out = (c.value < 0 ? "-" : "") + mine.substr(0, letter + 1) +
                (power < 0 ? "-" : "+") + std::to_string(power < 0 ? -power : power);
         return true;
       }},
      {"scientific form: the exponent has printf's digits, less one zero of a first 00",
       [](const Context& c, const std::string& expected, std::string* out) {
         size_t e = c.bare.find_first_of("Ee");
         if (e == std::string::npos || c.bare.find_first_of("0#") > e) return false;
         Shown shown;
         if (!parse_shown(expected, &shown) || shown.exponent.size() < 2) return false;
         int power = atoi(shown.exponent.c_str() + 1);
         std::string exponent = shown.exponent.substr(0, 1) + sprintf_string("%+03d", power);
         size_t pair = exponent.find("00", 1);
         if (pair != std::string::npos) exponent.erase(pair, 1);
         if (exponent == shown.exponent) return false;
         *out = expected.substr(0, expected.find(shown.exponent)) + exponent;
         return true;
       }},
      {"E is an exponent even without placeholders",
       [](const Context& c, const std::string&, std::string* out) {
         if (c.bare != "e" && c.bare != "E") return false;
         *out = (c.value < 0 ? "-" : "") + our_scientific(c.value, 0, c.bare[0]);
         return true;
       }},
      {"a denominator of 10^n has a digit too many: the field stays blank",
       [](const Context& c, const std::string& expected, std::string* out) {
         FractionLayout layout;
         if (!fraction_layout(c.bare, &layout)) return false;
         double p, q, whole = trunc(fabs(c.value));
         best_convergent(fabs(c.value) - whole, pow(10.0, layout.n), &p, &q);
         if (q != pow(10.0, layout.n)) return false;
         // The other program rounds to a denominator below 10^n and may
         // carry into the integer part.
         std::string head = fraction_head(layout, c.value);
         std::string carried = fraction_head(layout, c.value < 0 ? c.value - 1 : c.value + 1);
         if (expected.compare(0, head.size(), head) != 0 &&
             expected.compare(0, carried.size(), carried) != 0)
           return false;
         *out = head + std::string(layout.numerator_width + 1 + layout.n, ' ');
         return true;
       }},
      {"a fraction of 0 leaves its field blank",
       [](const Context& c, const std::string& expected, std::string* out) {
         FractionLayout layout;
         if (!fraction_layout(c.bare, &layout)) return false;
         double p, q, whole = trunc(fabs(c.value));
         best_convergent(fabs(c.value) - whole, pow(10.0, layout.n), &p, &q);
         if (p + (layout.integer.empty() ? whole * q : 0) != 0) return false;
         std::string head = fraction_head(layout, c.value);
         size_t slash = expected.find("0/1");
         if (slash == std::string::npos || expected.compare(0, head.size(), head) != 0) return false;
         *out = head + std::string(layout.numerator_width + 1 + layout.n, ' ');
         return true;
       }},
      {"a fraction field holds at most ten characters",
       [](const Context& c, const std::string& expected, std::string* out) {
         FractionLayout layout;
         if (!fraction_layout(c.bare, &layout) ||
             layout.numerator_width + 1 + layout.n <= 10 || layout.integer.empty())
           return false;
         double p, q, whole = trunc(fabs(c.value));
         best_convergent(fabs(c.value) - whole, pow(10.0, layout.n), &p, &q);
         if (p <= 0 || q >= pow(10.0, layout.n) || expected.find('/') == std::string::npos ||
             expected.compare(0, fraction_head(layout, c.value).size(), fraction_head(layout, c.value)) != 0)
           return false;
         *out = fraction_head(layout, c.value) +
                sprintf_string("%*.0f/%-*.0f", layout.numerator_width, p, layout.n, q).substr(0, 10);
         return true;
       }},
      {"a fraction's numerator pads with spaces, not zeros",
       [](const Context& c, const std::string& expected, std::string* out) {
         size_t slash = c.bare.find('/');
         if (slash == std::string::npos || c.bare.substr(0, slash).find('0') == std::string::npos)
           return false;
         size_t first = expected.find_first_not_of('0');
         if (first == 0 || first == std::string::npos || !is_digit(expected[first])) return false;
         *out = std::string(first, ' ') + expected.substr(first);
         return true;
       }},
      {"\"#\" shows no digit for an integer part of 0",
       [](const Context& c, const std::string& expected, std::string* out) {
         if (!c.field.integer_hashes || c.field.integer_zeros || fabs(c.value) >= 1) return false;
         size_t at = c.value < 0 ? 1 : 0;
         if ((at && expected[0] != '-') || expected.size() <= at + 1 || expected[at] != '0' ||
             is_digit(expected[at + 1]))
           return false;
         *out = expected.substr(0, at) + expected.substr(at + 1);
         return true;
       }},
      {"only \"0\" pads the integer part: \"#\" between zeros doesn't",
       [](const Context& c, const std::string& expected, std::string* out) {
         if (!c.field.hash_after_zero) return false;
         size_t start = expected.find_first_of("0123456789");
         if (start == std::string::npos) return false;
         size_t end = expected.find_first_not_of("0123456789", start);
         if (end == std::string::npos) end = expected.size();
         std::string digits = expected.substr(start, end - start);
         size_t leading = digits.find_first_not_of('0');
         size_t significant = leading == std::string::npos ? 0 : digits.size() - leading;
         size_t keep = std::max<size_t>(c.field.integer_zeros, significant);
         if (keep >= digits.size()) return false;
         *out = expected.substr(0, start) + digits.substr(digits.size() - keep) + expected.substr(end);
         return true;
       }},
      {"decimal places count, not order: zeros first, then optional digits, 16 significant",
       [](const Context& c, const std::string& expected, std::string* out) {
         if (!c.field.zero_after_hash || !shows(expected, c.value)) return false;
         // Ours must still show the value, to its own precision.
         std::string mine = ours(c.format, c.value);
         if (!shows(mine, c.value)) return false;
         *out = mine;
         return true;
       }},
      {"literal text among the placeholders ends the number: later placeholders show nothing",
       [](const Context& c, const std::string& expected, std::string* out) {
         std::vector<std::string> literals;
         if (c.bare.find('/') != std::string::npos || !split_number(c, out, &literals))
           return false;
         // The other program runs the number through the literals: without
         // them its text shows the value.  Literals before the point come
         // out of the integer part, the others out of the decimals.
         size_t point = expected.find('.');
         if (point == std::string::npos || expected.find('.', point + 1) != std::string::npos)
           return false;
         std::string integer = expected.substr(0, point), decimals = expected.substr(point + 1);
         size_t format_point = c.section.find('.');
         std::vector<std::string> before, after;
         for (const std::string& literal : literals)
           (c.section.find(literal) < format_point ? before : after).push_back(literal);
         for (auto literal = before.rbegin(); literal != before.rend(); ++literal) {
           size_t at = integer.rfind(*literal);
           if (at == std::string::npos) return false;
           integer.erase(at, literal->size());
         }
         for (const std::string& literal : after) {
           size_t at = decimals.find(literal);
           if (at == std::string::npos) return false;
           decimals.erase(at, literal.size());
         }
         return shows(integer + "." + decimals, c.value);
       }},
      {"a space before the \"/\" makes it no fraction: the number ends at the space",
       [](const Context& c, const std::string& expected, std::string* out) {
         std::vector<std::string> literals;
         size_t slash = c.bare.find('/');
         if (slash == std::string::npos || slash == 0 || c.bare[slash - 1] != ' ' ||
             expected.find('/') == std::string::npos)
           return false;
         return split_number(c, out, &literals);
       }},
      {"fractions of a second are never computed",
       [](const Context& c, const std::string& expected, std::string* out) {
         size_t s = c.bare.find("s.0");
         if (s == std::string::npos) return false;
         int h, m, sec, consumed = 0;
         if (sscanf(expected.c_str(), "%d:%2d:%2d%n", &h, &m, &sec, &consumed) != 3 ||
             expected[consumed] != '.')
           return false;
         size_t end = expected.find_first_not_of("0123456789", consumed + 1);
         if (end == std::string::npos) end = expected.size();
         std::string fraction = expected.substr(consumed + 1, end - consumed - 1);
         double total = h * 3600 + m * 60 + sec + atof(("0." + fraction).c_str());
         long rounded = static_cast<long>(floor(total + 0.5));
         *out = sprintf_string("%02ld:%02ld:%02ld.", rounded / 3600, rounded / 60 % 60, rounded % 60) +
                std::string(fraction.size(), '0') + expected.substr(end);
         return true;
       }},
      {"a point away from seconds starts the number field, written once",
       [](const Context& c, const std::string& expected, std::string* out) {
         // hh, then groups of spaces, a point and zeros.
         const std::string& s = c.bare;
         size_t i = s.find_first_not_of("hH");
         if (i == 0 || i == std::string::npos || s.find_first_not_of(" .0", i) != std::string::npos)
           return false;
         if (expected.size() < i || !is_digit(expected[0])) return false;
         std::string text = expected.substr(0, i);  // the hour, as both show it
         bool first = true;
         while (i < s.size()) {
           size_t point = s.find('.', i);
           if (point == std::string::npos) return false;
           text += s.substr(i, point - i);
           size_t end = s.find_first_not_of('0', point + 1);
           if (end == std::string::npos) end = s.size();
           int zeros = static_cast<int>(end - point - 1);
           if (first) {
             double fraction = fabs(c.value) + 5 * pow(10.0, -(zeros + 1));
             fraction -= trunc(fraction);
             text += '.';
             for (int k = 0; k < zeros; ++k) {
               fraction *= 10;
               int digit = static_cast<int>(floor(fraction));
               fraction -= digit;
               text += static_cast<char>('0' + digit);
             }
             first = false;
           }
           i = end;
         }
         *out = text;
         return true;
       }},
      {"a lone A or P is an AM/PM marker, shown only in its half of the day",
       [](const Context& c, const std::string& expected, std::string* out) {
         double shifted = c.value + 1.0 / 172800;
         int hour = static_cast<int>((shifted - floor(shifted)) * 24);
         std::string letters = without_general(c.bare);
         std::string text = expected;
         bool changed = false;
         for (size_t i = 0; i < letters.size(); ++i) {
           char ch = letters[i], lower = static_cast<char>(tolower(static_cast<unsigned char>(ch)));
           if (lower != 'a' && lower != 'p') continue;
           char next = i + 1 < letters.size() ? letters[i + 1] : 0;
           if (next == 'm' || next == 'M' || next == '/' || (i > 0 && letters[i - 1] == '/')) return false;
           if ((lower == 'a') == (hour < 12)) continue;  // shown by both
           size_t at = text.rfind(ch);
           if (at == std::string::npos) return false;
           text.erase(at, 1);
           changed = true;
         }
         *out = text;
         return changed;
       }},
      {"a time marker makes the section a time: a negative value shows #",
       [](const Context& c, const std::string&, std::string* out) {
         if (c.value >= 0 || without_general(c.bare).find_first_of("aApP") == std::string::npos)
           return false;
         *out = std::string(XLS_FORMAT_LAST_NUMBER_POSITION, '#');
         return true;
       }},
      {"AM/P: A shows with M before noon, P after, and the \"/\" never",
       [](const Context& c, const std::string& expected, std::string* out) {
         size_t at = c.bare.find_first_of("aA");
         if (at == std::string::npos || c.bare.size() != at + 4 ||
             (c.bare[at + 1] | 0x20) != 'm' || c.bare[at + 2] != '/' || (c.bare[at + 3] | 0x20) != 'p')
           return false;
         size_t space = expected.rfind(' ');
         if (space == std::string::npos || expected.find('/', space) == std::string::npos) return false;
         double shifted = c.value + 1.0 / 172800;
         bool morning = (shifted - floor(shifted)) * 24 < 12;
         *out = expected.substr(0, space + 1) + (morning ? c.bare.substr(at, 2) : c.bare.substr(at + 3));
         return true;
       }},
      {"AM/PM shows in the case the format writes it",
       [](const Context& c, const std::string& expected, std::string* out) {
         size_t at = c.bare.find("am/pm");
         if (at == std::string::npos) return false;
         size_t marker = expected.find_first_of("AP", expected.rfind(' ') + 1);
         if (marker == std::string::npos || expected.compare(marker + 1, 1, "M") != 0) return false;
         *out = expected;
         (*out)[marker] = static_cast<char>(tolower((*out)[marker]));
         (*out)[marker + 1] = 'm';
         return true;
       }},
      {"\"@\" in a number format shows nothing",
       [](const Context& c, const std::string& expected, std::string* out) {
         if (c.bare.empty() || c.bare.find_first_not_of('@') != std::string::npos) return false;
         if (!shows(expected, c.value)) return false;
         *out = c.value < 0 ? "-" : "";
         return true;
       }},
      {"a negative section shows no minus sign, General included",
       [](const Context& c, const std::string& expected, std::string* out) {
         if (c.value >= 0 || c.sections.size() < 2 || our_section(c.sections, c.value) != 1 ||
             c.section.find("General") == std::string::npos || expected.empty() || expected[0] != '-')
           return false;
         *out = expected.substr(1);
         return true;
       }},
      {"B is no Buddhist year: it shows nothing",
       [](const Context& c, const std::string& expected, std::string* out) {
         if (c.bare.empty() || c.bare.find_first_not_of("bB") != std::string::npos) return false;
         // The Gregorian year of the serial, plus 543; serial 60 is the
         // 1900 calendar's extra day.
         if (c.value < 1) return false;
         long days = static_cast<long>(floor(c.value)) - (c.value >= 61 ? 2 : 1);
         int year = 1900;
         auto length = [](int y) { return (y % 4 == 0 && (y % 100 != 0 || y % 400 == 0)) ? 366 : 365; };
         while (days >= length(year)) days -= length(year++);
         if (expected != sprintf_string("%02d", (year + 543) % 100)) return false;
         *out = "";
         return true;
       }},
      {"a B1 or B2 calendar prefix is not read: dates stay Gregorian",
       [](const Context& c, const std::string& expected, std::string* out) {
         if (c.section.size() < 3 || (c.section[0] | 0x20) != 'b' || (c.section[1] != '1' && c.section[1] != '2'))
           return false;
         std::string mine = ours(c.section.substr(2), c.value);
         if (mine.size() != expected.size()) return false;
         *out = mine;
         return true;
       }},
  };
  return list;
}

// The names of the rules that make expected and ours meet, or an empty list.
std::vector<std::string> explain(const Case& c, const std::string& mine) {
  // Replays first (none, one, or two in table order), then up to two habits
  // on the expected text.
  struct Start {
    std::vector<std::string> names;
    std::string format;
    double value;
  };
  std::vector<Start> starts = {{{}, c.format, c.value}};
  const std::vector<Replay>& r = replays();
  for (size_t i = 0; i < r.size(); ++i) {
    Start one = starts[0];
    if (!r[i].apply(&one.format, &one.value)) continue;
    one.names.push_back(r[i].name);
    starts.push_back(one);
    for (size_t j = i + 1; j < r.size(); ++j) {
      Start two = one;
      if (!r[j].apply(&two.format, &two.value)) continue;
      two.names.push_back(r[j].name);
      starts.push_back(two);
    }
  }
  const std::vector<Habit>& h = habits();
  for (const Start& start : starts) {
    // What our formatter shows for the replayed case; the habits then
    // read our section of the case as it stands.
    std::string target = start.names.empty() ? mine : ours(start.format, start.value);
    Context context = context_of(start.format, start.value);
    if (!start.names.empty() && target == c.expected) return start.names;
    for (size_t i = 0; i < h.size(); ++i) {
      std::string once;
      if (!h[i].apply(context, c.expected, &once)) continue;
      std::vector<std::string> names = start.names;
      names.push_back(h[i].name);
      if (once == target) return names;
      for (size_t j = 0; j < h.size(); ++j) {
        std::string twice;
        if (j == i || !h[j].apply(context, once, &twice)) continue;
        if (twice == target) {
          names.push_back(h[j].name);
          return names;
        }
      }
    }
  }
  return {};
}

TEST(NumfmtConformance, EveryDifferenceFollowsANamedRule) {
  std::string root = tabulon_test::shared_dir();
  std::vector<std::vector<std::string>> rows;
  if (root.empty() || !tabulon_test::read_tsv(root + "/oracle/numfmt/cases.tsv", &rows))
    GTEST_SKIP() << "no ../shared/oracle/numfmt/cases.tsv: skipped";

  std::map<std::string, int> per_rule;
  int total = 0, agreed = 0, unexplained = 0;
  for (size_t i = 1; i < rows.size(); ++i) {
    const std::vector<std::string>& row = rows[i];
    if (row.size() < 4) continue;
    Case c{row[0], unescape(row[1]), strtod(row[2].c_str(), nullptr), unescape(row[3])};
    ++total;
    std::string mine = ours(c.format, c.value);
    if (mine == c.expected) {
      ++agreed;
      continue;
    }
    std::vector<std::string> names = explain(c, mine);
    for (const std::string& name : names) ++per_rule[name];
    if (names.empty()) {
      ++unexplained;
      printf("[ unexplained ] %s: format [%s] value %s: expected [%s], ours [%s]\n",
             c.source.c_str(), c.format.c_str(), row[2].c_str(), c.expected.c_str(), mine.c_str());
    }
  }
  printf("[ numfmt ] %d cases, %d agree (%.1f%%), %d differ by the rules, %d unexplained\n", total,
         agreed, total ? 100.0 * agreed / total : 0.0, total - agreed - unexplained, unexplained);
  for (const auto& [name, count] : per_rule) printf("[ rule ] %4d  %s\n", count, name.c_str());
  ASSERT_GT(total, 1000) << "the case file looks truncated";
  EXPECT_EQ(0, unexplained);
}

}  // namespace
