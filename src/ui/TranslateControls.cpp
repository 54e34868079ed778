#include "ui/TranslateControls.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>
#include <QAbstractItemView>
#include <QAction>
#include <QDateTimeEdit>
#include <QDockWidget>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QTabBar>
#include <QTabWidget>
#include <QTextEdit>
#include <QToolBox>
#include <QWidget>

#include "lang/TL.h"

namespace ql {

namespace {

// The text of one half of a tag: "" for "-", anything not a number, or a missing text.
QString tagText(const QString& part) {
  bool ok = false;
  const int id = part.trimmed().toInt(&ok);
  return ok ? TranslateControlText(id) : QString();
}

struct TagTexts {
  QString caption;
  QString toolTip;
};

// "12T34", "12T-", "-T34" or a bare "12".
TagTexts parseTag(const QVariant& tag) {
  const QString t = tag.toString();
  if (t.isEmpty() || t == QLatin1String("-T-")) return {};
  const qsizetype sep = t.indexOf(QLatin1Char('T'));
  if (sep < 0) return {tagText(t), {}};
  return {tagText(t.left(sep)), tagText(t.mid(sep + 1))};
}

bool isTextBox(const QWidget* w) {
  return qobject_cast<const QLineEdit*>(w) || qobject_cast<const QTextEdit*>(w) ||
         qobject_cast<const QPlainTextEdit*>(w);
}

bool isPlainFrame(const QWidget* w) { return w->metaObject() == &QFrame::staticMetaObject; }

// Labels, buttons, check and option boxes, group boxes, plain frames, lists, pictures; the date
// picker only when the texts are translated too.
bool takesColours(const QWidget* w, bool withDatePicker) {
  if (isTextBox(w)) return false;
  return qobject_cast<const QLabel*>(w) || qobject_cast<const QAbstractButton*>(w) ||
         qobject_cast<const QGroupBox*>(w) || qobject_cast<const QAbstractItemView*>(w) ||
         isPlainFrame(w) || (withDatePicker && qobject_cast<const QDateTimeEdit*>(w));
}

QColor rgb(int value) { return QColor::fromRgb(static_cast<QRgb>(value) & 0xFFFFFFu); }

void applyColours(QWidget* w, int backColor, int frameColor) {
  QPalette p = w->palette();
  p.setColor(QPalette::Window, rgb(backColor));
  if (qobject_cast<QAbstractItemView*>(w)) p.setColor(QPalette::Base, rgb(backColor));
  if (isPlainFrame(w) && frameColor != -1) p.setColor(QPalette::WindowText, rgb(frameColor));
  w->setPalette(p);
  w->setAutoFillBackground(true);
}

// A page of a tab widget or tool box is named by its tab.
bool setPageTexts(QWidget* page, const TagTexts& t) {
  for (QWidget* p = page->parentWidget(); p; p = p->parentWidget()) {
    if (auto* tabs = qobject_cast<QTabWidget*>(p)) {
      const int i = tabs->indexOf(page);
      if (i < 0) return false;
      if (!t.caption.isEmpty()) tabs->setTabText(i, t.caption);
      if (!t.toolTip.isEmpty()) tabs->setTabToolTip(i, t.toolTip);
      return true;
    }
    if (auto* box = qobject_cast<QToolBox*>(p)) {
      const int i = box->indexOf(page);
      if (i < 0) return false;
      if (!t.caption.isEmpty()) box->setItemText(i, t.caption);
      if (!t.toolTip.isEmpty()) box->setItemToolTip(i, t.toolTip);
      return true;
    }
    if (p->isWindow()) break;
  }
  return false;
}

void setCaption(QWidget* w, const QString& text) {
  if (auto* l = qobject_cast<QLabel*>(w)) l->setText(text);
  else if (auto* b = qobject_cast<QAbstractButton*>(w)) b->setText(text);
  else if (auto* g = qobject_cast<QGroupBox*>(w)) g->setTitle(text);
  else if (auto* e = qobject_cast<QLineEdit*>(w)) e->setText(text);
  else if (auto* te = qobject_cast<QTextEdit*>(w)) te->setPlainText(text);
  else if (auto* pe = qobject_cast<QPlainTextEdit*>(w)) pe->setPlainText(text);
  else if (auto* m = qobject_cast<QMenu*>(w)) m->setTitle(text);
  else if (w->isWindow() || qobject_cast<QDockWidget*>(w)) w->setWindowTitle(text);
}

void translateWidget(QWidget* w) {
  const TagTexts t = parseTag(w->property("tag"));
  if (setPageTexts(w, t)) return;
  if (!t.caption.isEmpty()) setCaption(w, t.caption);
  if (!t.toolTip.isEmpty()) w->setToolTip(t.toolTip);
}

void translateTabBar(QTabBar* bar) {
  for (int i = 0; i < bar->count(); ++i) {
    const TagTexts t = parseTag(bar->tabData(i));
    if (!t.caption.isEmpty()) bar->setTabText(i, t.caption);
    if (!t.toolTip.isEmpty()) bar->setTabToolTip(i, t.toolTip);
  }
}

void translateAction(QAction* a) {
  const TagTexts t = parseTag(a->property("tag"));
  if (!t.caption.isEmpty()) a->setText(t.caption);
  if (!t.toolTip.isEmpty()) a->setToolTip(t.toolTip);
}

}  // namespace

void TranslateControls(QWidget* form, int backColor, int frameColor) {
  if (!form) return;
  QList<QWidget*> widgets = form->findChildren<QWidget*>();
  widgets.prepend(form);

  if (language() == kLangGerman) {
    if (backColor == -1) return;
    for (QWidget* w : widgets)
      if (takesColours(w, false)) applyColours(w, backColor, frameColor);
    return;
  }
  // A translator's empty file leaves the windows exactly as they are, colours included.
  if (translationMode() && textTableEmpty()) return;

  for (QWidget* w : widgets) {
    if (backColor != -1 && takesColours(w, true)) applyColours(w, backColor, frameColor);
    translateWidget(w);
    // The tabs of a tab widget are named by their pages, those of a free tab bar by their data.
    if (auto* bar = qobject_cast<QTabBar*>(w); bar && !qobject_cast<QTabWidget*>(bar->parent()))
      translateTabBar(bar);
  }
  QList<QAction*> actions = form->findChildren<QAction*>();
  for (QAction* a : form->actions())
    if (!actions.contains(a)) actions.append(a);
  for (QAction* a : actions) translateAction(a);
}

bool installQtTranslations(int lang) {
  // One translator for the life of the process; loading again replaces its texts.
  static QTranslator* qtTexts = nullptr;
  if (!qtTexts) qtTexts = new QTranslator(QCoreApplication::instance());
  QCoreApplication::removeTranslator(qtTexts);
  if (lang != kLangGerman && lang != kLangRussian) return true;
  const QLocale locale(lang == kLangGerman ? QLocale::German : QLocale::Russian);
  // "qt_xx" is Qt's meta catalogue: it pulls in qtbase and the modules beside it.
  if (!qtTexts->load(locale, QStringLiteral("qt"), QStringLiteral("_"),
                     QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
    return false;
  QCoreApplication::installTranslator(qtTexts);
  return true;
}

}  // namespace ql
