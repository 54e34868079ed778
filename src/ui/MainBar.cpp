#include "ui/MainBar.h"

#include <QActionGroup>
#include <QMenu>
#include <QToolButton>
#include <algorithm>
#include <tuple>

#include "lang/TL.h"
#include "ui/CommandIds.h"
#include "ui/SourcesBox.h"
#include "ui/WindowState.h"

namespace ql {

using namespace cmd::main;

MainBar::MainBar(SourcesBox* sources, const MainOptions& o, QWidget* parent)
    : CommandBar(QStringLiteral("cbrMain"), QStringLiteral("Quorlane"), parent),
      nextLanguage_(ql::language()) {
  sources->setParent(this);
  AddWidget(Sources, sources, false);
  using T = CommandBar::Type;
  AddControl(T::Button, New, 3529, "Neu", "folder-new", false, 3530, "Neue Quelle auswählen");
  AddControl(T::Button, Start, 3531, "Start", "media-playback-start", false, 3532,
             "Quelle einlesen");
  AddControl(T::Button, cmd::main::Stop, 3533, "Stop", "process-stop", false, 3534,
             "Einlesen beenden", false, false, false);
  AddControl(T::Button, Import, 4054, "Importieren", "document-open", false, 4055,
             "Eine gespeicherte Messung (JSON-Export) öffnen");
  AddControl(T::Button, ShowReport, 3641, "Ordnerliste", "view-list-tree", true, 3667,
             "Ordnerliste anzeigen", true, true);
  AddControl(T::Button, ShowDrives, 3643, "Laufwerksliste", "drive-harddisk", false, 3632,
             "Laufwerksliste anzeigen", true, o.DiskinfoVisible);
  AddControl(T::Button, ShowFiles, 3645, "Dateiliste", "view-list-details", false, 3635,
             "Dateiliste anzeigen", true, o.FilelistVisible);
  AddControl(T::Button, ShowLargest, 3724, "Größte Dateien", "view-sort-descending", false, 3725,
             "Liste mit den größten Dateien anzeigen", true, o.ToplistVisible);
  AddControl(T::Button, ShowTreemap, 4520, "Treemap", "quorlane-treemap", false, 4521,
             "Treemap des gewählten Ordners anzeigen", true, o.TreemapVisible);
  AddControl(T::Button, ShowTypes, 4522, "Dateitypen", "quorlane-types", false, 4523,
             "Dateitypen des gewählten Ordners anzeigen", true, o.TypesVisible);
  AddControl(T::Button, Options, 3547, "Optionen", "preferences-system", true, 3548, "Optionen");
  AddControl(T::Button, BigIcons, 3627, "Symbolgröße", "zoom-in", true, 3628, "Symbole vergrößern",
             true, o.BigIcons);
  AddControl(T::Button, IconText, 3690, "Symboltext", "format-text-bold", false, 3689,
             "Symboltext anzeigen", true, o.SymbolText);
  AddControl(T::Button, FontLarger, 3672, "Größer", "format-font-size-more", true, 3652,
             "Schrift vergrößern");
  AddControl(T::Button, FontSmaller, 3650, "Kleiner", "format-font-size-less", false, 3651,
             "Schrift verkleinern");
  AddControl(T::SplitButton, Language, 3701, "Sprache", "preferences-desktop-locale", true, 3702,
             "Sprache der Benutzeroberfläche ändern");
  // Every language the program carries; the one of this run is marked.
  auto* languages = new QActionGroup(this);
  for (auto [id, lang, text] : {std::tuple{German, kLangGerman, TL(3703, "Deutsch")},
                                {English, kLangEnglish, TL(3704, "Englisch")},
                                {Russian, kLangRussian, TL(3705, "Russisch")}}) {
    QAction* a = AddPopupControl(Language, id, text);
    a->setCheckable(true);
    a->setChecked(lang == language());
    languages->addAction(a);
  }
  // The whole button opens the menu: the button itself has nothing else to do.
  if (auto* button = qobject_cast<QToolButton*>(widgetForAction(control(Language))))
    button->setPopupMode(QToolButton::InstantPopup);
  AddControl(T::Button, About, 3551, "Info", "help-about", true, 3552, "Info");
  AddControl(T::Button, Homepage, 3553, "Homepage", "go-home", false, 3554, "Homepage");
  AddControl(T::Button, Update, 3555, "Update", "system-software-update", false, 3556,
             "Internet Update");
  AddControl(T::Button, Exit, 3557, "Beenden", "application-exit", true, 3558, "Programm beenden");
}

void MainBar::toggleFullView(int list) {
  const int lists[] = {ShowReport, ShowDrives, ShowFiles, ShowLargest};
  bool alone = true;
  for (int id : lists) alone = alone && isChecked(id) == (id == list);
  if (!alone) {
    beforeFullView_.clear();
    for (int id : lists)
      if (isChecked(id)) beforeFullView_.push_back(id);
  } else if (beforeFullView_.empty() || beforeFullView_ == std::vector<int>{list}) {
    beforeFullView_ = {ShowReport, ShowDrives, list == ShowLargest ? ShowLargest : ShowFiles};
  }
  for (int id : lists) {
    const auto kept = std::find(beforeFullView_.begin(), beforeFullView_.end(), id);
    setChecked(id, alone ? kept != beforeFullView_.end() : id == list);
  }
}

bool MainBar::toggleList(int id) {
  bool othersShown = false;
  for (int other : {ShowReport, ShowDrives, ShowFiles, ShowLargest})
    if (other != id && isChecked(other)) othersShown = true;
  if (!othersShown) {
    setChecked(id, true);
    return false;
  }
  if (id == ShowFiles && isChecked(ShowFiles)) setChecked(ShowLargest, false);
  if (id == ShowLargest && isChecked(ShowLargest)) setChecked(ShowFiles, false);
  return true;
}

void MainBar::showLanguages() {
  QMenu* menu = control(Language)->menu();
  QWidget* button = widgetForAction(control(Language));
  menu->popup(button && button->isVisible() ? button->mapToGlobal(QPoint(0, button->height()))
                                            : mapToGlobal(QPoint(0, height())));
}

bool MainBar::chooseLanguage(int id) {
  const int language = id == German ? kLangGerman : id == English ? kLangEnglish : kLangRussian;
  // A refused restart leaves everything as it was, the check mark too.
  if (storeLanguage(parentWidget(), language)) nextLanguage_ = language;
  markLanguage(nextLanguage_);
  return nextLanguage_ != ql::language();
}

void MainBar::markLanguage(int language) {
  setChecked(language == kLangGerman ? German : language == kLangRussian ? Russian : English, true);
}

void MainBar::setBusy(bool busy) {
  setAllEnabled(!busy);
  control(cmd::main::Stop)->setEnabled(busy);
}

void MainBar::storeOptions(MainOptions& o) const {
  o.DiskinfoVisible = isChecked(ShowDrives);
  o.FilelistVisible = isChecked(ShowFiles);
  o.ToplistVisible = isChecked(ShowLargest);
  o.TreemapVisible = isChecked(ShowTreemap);
  o.TypesVisible = isChecked(ShowTypes);
  o.BigIcons = isChecked(BigIcons);
  o.SymbolText = isChecked(IconText);
}

}  // namespace ql
