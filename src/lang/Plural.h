#pragma once
// Counted texts: "1 Datei", "2 Dateien". German and English have one form for one and another
// for every other number; Russian has three (1, 21, 101: файл; 2-4, 22-24: файла; 0, 5-20,
// 11-14, 25-30: файлов). Each form is a text id of its own, so translators see whole sentences.

#include <cstdint>

#include <QString>

#include "lang/TL.h"

namespace ql {

enum class PluralForm { One, Few, Many };

inline PluralForm pluralForm(int64_t n, int lang = language()) {
  const uint64_t a = n < 0 ? 0 - static_cast<uint64_t>(n) : static_cast<uint64_t>(n);
  if (lang != kLangRussian) return a == 1 ? PluralForm::One : PluralForm::Many;
  const uint64_t ten = a % 10, hundred = a % 100;
  if (ten == 1 && hundred != 11) return PluralForm::One;
  if (ten >= 2 && ten <= 4 && (hundred < 12 || hundred > 14)) return PluralForm::Few;
  return PluralForm::Many;
}

// The text of the form `n` takes in the language of the run; `few` is read only in Russian and
// is the same as `many` in the other languages.
inline QString plural(int64_t n, const QString& one, const QString& few, const QString& many) {
  switch (pluralForm(n)) {
    case PluralForm::One:
      return one;
    case PluralForm::Few:
      return few;
    case PluralForm::Many:
      break;
  }
  return many;
}

}  // namespace ql
