#pragma once
// The system's save-file dialog, with the arguments the program's forms hand it: a filter of the
// form "name|pattern|name|pattern", a default extension, an overwrite prompt and a starting
// folder. A form that owns one can replace the dialog by an answerer (tests).

#include <QString>
#include <functional>

class QWidget;

namespace ql {

class cCommonDialog {
 public:
  // What the save-file dialog is asked and what it answers; FileName is also the preset name.
  struct SaveRequest {
    QString FileName;
    QString FileTitle;  // the name without its folder
    bool OverWritePrompt = true;
    QString Filter;
    int FilterIndex = 1;  // counted from 1
    QString InitDir;      // "" starts where the system likes
    QString DlgTitle;
    QString DefaultExt;  // without the dot
  };
  using Answerer = std::function<bool(SaveRequest& request)>;

  // True with the chosen FileName and FileTitle; false on Cancel, the request unchanged.
  bool VBGetSaveFileName(SaveRequest& request, QWidget* Owner);

  void setAnswerer(Answerer answerer) { answerer_ = std::move(answerer); }

  // "TXT (*.txt)|*.txt" as the file dialog's own filter list, one row per pair.
  static QStringList qtFilters(const QString& filter);

 private:
  Answerer answerer_;
};

}  // namespace ql
