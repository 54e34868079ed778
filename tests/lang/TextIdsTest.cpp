// Every text id in the source tree has one German default and a text in each shipped table, and
// the tables agree with each other and with the code.

#include <gtest/gtest.h>

#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include "lang/TextTableReader.h"

// Outside the namespace: the macro declares the resource's global initialiser.
static void registerTables() { Q_INIT_RESOURCE(quorlane_lang); }

namespace ql {
namespace {

struct Use {
  QString deflt, where;
};

// Every TL(<number>, "literal") in the source tree, adjacent literals joined, escapes resolved.
QMap<int, QList<Use>> textIdsInSources() {
  static const QRegularExpression call(
      QString::fromUtf8(R"re(\bTL\(\s*(\d+)\s*,\s*(?:QStringLiteral\(\s*|QString::fromUtf8\(\s*)?)re"
                        R"re(((?:u8?)?"(?:[^"\\]|\\.)*"(?:\s*"(?:[^"\\]|\\.)*")*))re"));
  static const QRegularExpression literal(QString::fromUtf8(R"re("((?:[^"\\]|\\.)*)")re"));
  static const QRegularExpression escape(QStringLiteral(R"(\\(.))"));
  QMap<int, QList<Use>> uses;
  QDirIterator it(QStringLiteral(QL_SOURCE_DIR), {QStringLiteral("*.cpp"), QStringLiteral("*.h")},
                  QDir::Files, QDirIterator::Subdirectories);
  while (it.hasNext()) {
    QFile f(it.next());
    if (!f.open(QIODevice::ReadOnly)) continue;
    const QString source = QString::fromUtf8(f.readAll());
    for (auto m = call.globalMatch(source); m.hasNext();) {
      const auto match = m.next();
      QString text;
      for (auto l = literal.globalMatch(match.captured(2)); l.hasNext();)
        text += l.next().captured(1).replace(QStringLiteral("\\n"), QStringLiteral("\n"))
                    .replace(escape, QStringLiteral("\\1"));
      const auto line = source.left(match.capturedStart()).count('\n') + 1;
      uses[match.captured(1).toInt()].append({text, f.fileName() + ':' + QString::number(line)});
    }
  }
  return uses;
}

struct Record {
  QString reference, text;
};

// A shipped table with the German reference of each record; the program's reader must read all.
QMap<int, Record> shippedTable(const QString& name) {
  registerTables();
  QFile f(QStringLiteral(":/lang/") + name);
  EXPECT_TRUE(f.open(QIODevice::ReadOnly)) << name.toStdString();
  const QByteArray data = f.readAll();
  static const QRegularExpression record(QString::fromUtf8(R"re(^(\d+),"([^"]*)","([^"]*)"$)re"));
  QMap<int, Record> table;
  for (const QString& line : QString::fromUtf8(data).split(QLatin1Char('\n'))) {
    if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) continue;
    const auto m = record.match(line);
    EXPECT_TRUE(m.hasMatch() && !table.contains(m.captured(1).toInt())) << line.toStdString();
    table.insert(m.captured(1).toInt(), {m.captured(2), m.captured(3)});
  }
  const TextTable read = readTextTable(data);
  EXPECT_TRUE(read.error.isEmpty() && read.texts.size() == table.size()) << name.toStdString();
  return table;
}

// Ids that the program has always used with two German texts, in different places.
bool knownDouble(int id, const QString& a, const QString& b) {
  static const QMap<int, QSet<QString>> doubles = {
      {3654, {"Ausgewählte Datei(en) löschen", "Datei(en) löschen"}},
      {3655, {"Ausgewählte Datei(en) in den Papierkorb verschieben",
              "Datei(en) in den Papierkorb verschieben"}},
      {3719, {"Alle anderen Liste ausblenden", "Alle anderen Listen ausblenden"}},
  };
  return a == b || (doubles.value(id).contains(a) && doubles.value(id).contains(b));
}

QStringList placeholders(const QString& s) {
  static const QRegularExpression p(QStringLiteral("%[0-9!]"));
  QStringList found;
  for (auto m = p.globalMatch(s); m.hasNext();) found << m.next().captured();
  found.sort();
  return found;
}

TEST(TextIds, EveryIdInTheCodeHasOneDefaultAndTheTablesAgree) {
  const auto uses = textIdsInSources();
  // The scan must see the code at all: this call is in the program since its start.
  ASSERT_TRUE(uses.contains(3525));
  const auto eng = shippedTable(QStringLiteral("eng.txt"));
  const auto rus = shippedTable(QStringLiteral("rus.txt"));
  EXPECT_EQ(eng.keys(), rus.keys());
  for (auto e = eng.begin(); e != eng.end(); ++e) {
    const Record r = rus.value(e.key());
    EXPECT_EQ(e->reference, r.reference) << e.key();
    EXPECT_FALSE(e->text.isEmpty() || r.text.isEmpty()) << e.key();
    EXPECT_EQ(placeholders(e->text), placeholders(e->reference)) << "English " << e.key();
    EXPECT_EQ(placeholders(r.text), placeholders(r.reference)) << "Russian " << e.key();
  }
  for (auto it = uses.begin(); it != uses.end(); ++it)
    for (const Use& u : *it) {
      const std::string where = u.where.toStdString() + ": id " + std::to_string(it.key()) + " ";
      EXPECT_FALSE(u.deflt.isEmpty()) << where << "has no text";
      EXPECT_TRUE(knownDouble(it.key(), u.deflt, it->front().deflt))
          << where << "differs from " << it->front().where.toStdString();
      // Another German text means the id is used for something the table doesn't say.
      ASSERT_TRUE(eng.contains(it.key())) << where << "has no translation";
      EXPECT_TRUE(knownDouble(it.key(), eng.value(it.key()).reference, u.deflt))
          << where << "is \"" << u.deflt.toStdString() << "\" in the code, not in the tables";
    }
}

}  // namespace
}  // namespace ql
