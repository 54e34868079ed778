// Every text id in the source tree has one German default and a text in each shipped table, and
// the tables agree with each other and with the code.

#include <gtest/gtest.h>

#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include "lang/TextTableReader.h"

static void registerTables() { Q_INIT_RESOURCE(quorlane_lang); }

namespace ql {
namespace {

struct Use {
  QString deflt;
  QString where;
};

// A C++ string literal's contents, with its escapes resolved.
QString unescape(const QString& body) {
  QString out;
  for (qsizetype i = 0; i < body.size(); ++i) {
    if (body[i] != QLatin1Char('\\') || i + 1 == body.size()) {
      out += body[i];
      continue;
    }
    const QChar c = body[++i];
    out += c == QLatin1Char('n') ? QChar('\n') : c == QLatin1Char('t') ? QChar('\t') : c;
  }
  return out;
}

// Every TL(<number>, "literal") in the source tree, adjacent literals joined.
QMap<int, QList<Use>> textIdsInSources() {
  static const QRegularExpression call(
      QString::fromUtf8(R"re(\bTL\(\s*(\d+)\s*,\s*(?:QStringLiteral\(\s*|QString::fromUtf8\(\s*)?)re"
                        R"re(((?:u8?)?"(?:[^"\\]|\\.)*"(?:\s*"(?:[^"\\]|\\.)*")*))re"));
  static const QRegularExpression literal(QString::fromUtf8(R"re("((?:[^"\\]|\\.)*)")re"));
  QMap<int, QList<Use>> uses;
  QDirIterator it(QStringLiteral(QL_SOURCE_DIR), {QStringLiteral("*.cpp"), QStringLiteral("*.h")},
                  QDir::Files, QDirIterator::Subdirectories);
  while (it.hasNext()) {
    const QString path = it.next();
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) continue;
    const QString source = QString::fromUtf8(f.readAll());
    for (auto m = call.globalMatch(source); m.hasNext();) {
      const auto match = m.next();
      QString text;
      for (auto l = literal.globalMatch(match.captured(2)); l.hasNext();)
        text += unescape(l.next().captured(1));
      const int line = static_cast<int>(source.left(match.capturedStart()).count('\n')) + 1;
      uses[match.captured(1).toInt()].append({text, path + ':' + QString::number(line)});
    }
  }
  return uses;
}

struct Record {
  QString reference;
  QString text;
};

// A shipped table with the German reference of each record, read line by line; the program's
// own reader must agree with it.
QMap<int, Record> shippedTable(const QString& name, int* dataLines) {
  registerTables();
  QFile f(QStringLiteral(":/lang/") + name);
  EXPECT_TRUE(f.open(QIODevice::ReadOnly)) << name.toStdString();
  const QByteArray data = f.readAll();
  static const QRegularExpression record(QString::fromUtf8(R"re(^(\d+),"([^"]*)","([^"]*)"$)re"));
  QMap<int, Record> table;
  *dataLines = 0;
  for (const QString& line : QString::fromUtf8(data).split(QLatin1Char('\n'))) {
    if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) continue;
    ++*dataLines;
    const auto m = record.match(line);
    EXPECT_TRUE(m.hasMatch()) << name.toStdString() << ": " << line.toStdString();
    EXPECT_FALSE(table.contains(m.captured(1).toInt())) << "twice: " << line.toStdString();
    table.insert(m.captured(1).toInt(), {m.captured(2), m.captured(3)});
  }
  const TextTable read = readTextTable(data);
  EXPECT_TRUE(read.error.isEmpty());
  EXPECT_EQ(read.texts.size(), table.size()) << name.toStdString();
  for (auto r = table.begin(); r != table.end(); ++r)
    EXPECT_EQ(read.texts.value(r.key()), r->text) << name.toStdString() << " " << r.key();
  return table;
}

// Ids that the program has always used with two German texts, in different places.
bool knownDouble(int id, const QString& a, const QString& b) {
  static const QMap<int, QSet<QString>> doubles = {
      {3654, {QStringLiteral("Ausgewählte Datei(en) löschen"), QStringLiteral("Datei(en) löschen")}},
      {3655,
       {QStringLiteral("Ausgewählte Datei(en) in den Papierkorb verschieben"),
        QStringLiteral("Datei(en) in den Papierkorb verschieben")}},
      {3719,
       {QStringLiteral("Alle anderen Liste ausblenden"),
        QStringLiteral("Alle anderen Listen ausblenden")}},
  };
  return doubles.value(id).contains(a) && doubles.value(id).contains(b);
}

QStringList placeholders(const QString& s) {
  static const QRegularExpression p(QStringLiteral("%[0-9!]"));
  QStringList found;
  for (auto m = p.globalMatch(s); m.hasNext();) found << m.next().captured();
  found.sort();
  return found;
}

TEST(TextIds, EveryIdInTheCodeHasOneDefaultAndBothTranslations) {
  const auto uses = textIdsInSources();
  // The scan must see the code at all: these calls are in the program since its start.
  ASSERT_GE(uses.size(), 10);
  ASSERT_TRUE(uses.contains(3525));

  int lines = 0;
  const auto eng = shippedTable(QStringLiteral("eng.txt"), &lines);
  const auto rus = shippedTable(QStringLiteral("rus.txt"), &lines);
  for (auto it = uses.begin(); it != uses.end(); ++it) {
    const int id = it.key();
    const Use& first = it->front();
    for (const Use& u : *it) {
      EXPECT_FALSE(u.deflt.isEmpty()) << u.where.toStdString() << ": id " << id << " has no text";
      EXPECT_TRUE(u.deflt == first.deflt || knownDouble(id, u.deflt, first.deflt))
          << "id " << id << ": \"" << first.deflt.toStdString() << "\" at "
          << first.where.toStdString() << ", \"" << u.deflt.toStdString() << "\" at "
          << u.where.toStdString();
      for (const auto* table : {&eng, &rus}) {
        const char* name = table == &eng ? "English" : "Russian";
        ASSERT_TRUE(table->contains(id))
            << u.where.toStdString() << ": id " << id << " has no " << name << " text";
        EXPECT_FALSE(table->value(id).text.isEmpty()) << id;
        // A different German text means the id is used for something the table doesn't say.
        const QString ref = table->value(id).reference;
        EXPECT_TRUE(ref == u.deflt || knownDouble(id, ref, u.deflt))
            << u.where.toStdString() << ": id " << id << " is \"" << u.deflt.toStdString()
            << "\" in the code and \"" << ref.toStdString() << "\" in the " << name << " table";
      }
    }
  }
}

TEST(TextIds, TheTablesCoverTheSameIdsWithTheSamePlaceholders) {
  int engLines = 0, rusLines = 0;
  const auto eng = shippedTable(QStringLiteral("eng.txt"), &engLines);
  const auto rus = shippedTable(QStringLiteral("rus.txt"), &rusLines);
  EXPECT_EQ(eng.size(), engLines);
  EXPECT_GT(eng.size(), 250);
  EXPECT_EQ(eng.keys(), rus.keys());
  for (auto e = eng.begin(); e != eng.end(); ++e) {
    const Record r = rus.value(e.key());
    EXPECT_EQ(e->reference, r.reference) << e.key();
    EXPECT_EQ(placeholders(e->text), placeholders(e->reference)) << "English " << e.key();
    EXPECT_EQ(placeholders(r.text), placeholders(r.reference)) << "Russian " << e.key();
    EXPECT_FALSE(e->text.isEmpty() || r.text.isEmpty()) << e.key();
  }
}

}  // namespace
}  // namespace ql
