#include "ui/dialogs/frmInfo.h"

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>

#include "support/Globals.h"
#include "support/Version.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"

// Outside the namespace: the macro declares the resource's global initialiser.
static void registerIcons() { Q_INIT_RESOURCE(quorlane_icons); }

namespace ql {

QIcon programIcon() {
  static const bool registered = (registerIcons(), true);
  (void)registered;
  return QIcon(QStringLiteral(":/icons/quorlane.svg"));
}

namespace {

QString link(const QString& url, const QString& text) {
  return QStringLiteral("<a href=\"%1\">%2</a>").arg(url.toHtmlEscaped(), text.toHtmlEscaped());
}

// A web address without its scheme, as people write it.
QString shown(const QString& url) {
  const QUrl u(url);
  return u.isValid() && !u.host().isEmpty() ? u.host() + u.path() : url;
}

}  // namespace

frmInfo::frmInfo(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("frmInfo"));
  setWindowTitle(TL(3551, "Info"));

  auto* icon = new QLabel(this);
  icon->setPixmap(programIcon().pixmap(64, 64));
  icon->setAlignment(Qt::AlignTop);
  auto* name = new QLabel(QStringLiteral("<b>Quorlane</b>"), this);
  QFont big = name->font();
  big.setPointSizeF(big.pointSizeF() * 1.6);
  name->setFont(big);
  lblVersion = new QLabel(TL(4240, "Version %1", {threePartVersion(globals().AppVersion)}), this);
  lblVersion->setObjectName(QStringLiteral("lblVersion"));
  auto* what = new QLabel(TL(3991, "Zeigt, wo der Platz auf einem Datenträger geblieben ist."), this);
  what->setWordWrap(true);
  what->setMinimumWidth(what->fontMetrics().averageCharWidth() * 44);  // one line in the usual fonts

  const QString home = webHost();
  const QString mail = supportMailAddress();
  lblLinks = new QLabel(this);
  lblLinks->setObjectName(QStringLiteral("lblLinks"));
  lblLinks->setText(TL(3553, "Homepage") + QStringLiteral(": ") + link(home, shown(home)) + QStringLiteral("<br>") +
                    TL(4241, "E-Mail") + QStringLiteral(": ") + link(QStringLiteral("mailto:") + mail, mail));
  lblLinks->setTextFormat(Qt::RichText);
  lblLinks->setOpenExternalLinks(true);
  lblLinks->setTextInteractionFlags(Qt::TextBrowserInteraction);
  lblQt = new QLabel(TL(4242, "Qt-Version: %1", {QString::fromLatin1(qVersion())}), this);
  lblQt->setObjectName(QStringLiteral("lblQt"));

  auto* buttons = new QDialogButtonBox(this);
  cmdClose = buttons->addButton(TL(4160, "Schließen"), QDialogButtonBox::AcceptRole);
  cmdClose->setObjectName(QStringLiteral("cmdClose"));
  cmdClose->setDefault(true);
  connect(cmdClose, &QPushButton::clicked, this, guard_.wrap("cmdClose_Click", [this] { accept(); }));

  auto* grid = new QGridLayout(this);
  grid->setHorizontalSpacing(16);
  grid->addWidget(icon, 0, 0, 5, 1);
  int row = 0;
  for (QWidget* w : {static_cast<QWidget*>(name), static_cast<QWidget*>(lblVersion), static_cast<QWidget*>(what),
                     static_cast<QWidget*>(lblLinks), static_cast<QWidget*>(lblQt)})
    grid->addWidget(w, row++, 1);
  grid->setRowMinimumHeight(row++, 8);
  grid->addWidget(buttons, row, 0, 1, 2);
  grid->setSizeConstraint(QLayout::SetFixedSize);
}

}  // namespace ql
