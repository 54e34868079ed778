#pragma once
// Every text the program shows goes through TL: a number, the German text beside it at the place
// of use, and arguments for "%1", "%2", ...; "%!" is a line break.

#include <QString>
#include <QStringList>

namespace ql {

QString TL(int id, const QString& deflt, const QStringList& args = {});

}  // namespace ql
