#pragma once
// What the program keeps in its settings file, and the readers and writers the window uses at
// start and exit. The key table below is the only place where defaults live: every reader here
// takes its default from it.
//
// Value forms: a flag is written as 0 or 1 and read as a byte (any non-zero byte is on, the
// caller decides); a small number is a byte; a measure is a 32-bit integer or, for FontSize, a
// floating-point number; a text or path is written as it is. Reading "abc", "-1" or "300" into a
// byte is a conversion failure.
//
// Lists of unknown length (ComboOrdner "O0", "O1", ...; DriveFolders "F0", ...) end at the first
// key that is missing: the read with the default "!(nix].-." gives the default back. An empty
// value is a value; a gap ends the list. Writing such a list deletes its section first.
//
// User-interface thread only, like the settings file itself.

#include <QList>
#include <QString>
#include <QVariant>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "support/Profile.h"

namespace ql {

// What a missing list key reads as; never a value of its own.
inline constexpr char kProfileListEnd[] = "!(nix].-.";

enum class SettingForm { Flag, Small, Measure, Text, List };

struct MainOptions;
// The field of MainOptions that holds a key of Optionen.
using OptionField = std::variant<int*, double*, QString*>;

struct SettingKey {
  const char* section;
  const char* key;  // the spelling used for reading; lists: the prefix of the numbered keys
  SettingForm form;
  const char* deflt;     // nullptr: computed by the reader (the centred window position)
  const char* writeKey;  // nullptr: written as `key`
  // Keys of MainOptions: where the value lives; load and save walk the table through it.
  OptionField (*field)(MainOptions&) = nullptr;
  // False for the keys the options dialog and the start write themselves, not the exit.
  bool savedAtExit = true;
};

// The complete table, in the order the sections are read.
std::span<const SettingKey> settingKeys();
// The table's entry for a key (either spelling, any case), or nullptr.
const SettingKey* findSettingKey(const QString& section, const QString& key);
// The table's default; empty for unknown keys and computed defaults.
QString settingDefault(const QString& section, const QString& key);

// Kontextmenu: "99" at start means never decided; the options dialog reads it with this.
inline constexpr char kKontextmenuDialogDefault[] = "1";

// The settings file of the run (globals().IniFile) when `file` is empty.
QString iniPath(const QString& file);

// The value of a key, or `deflt`; `file` empty means the settings file of the run.
QString GetSettings(const QString& section, const QString& key, const QString& deflt,
                    const QString& file = QString());
// The same with the table's default.
QString GetSettings(const QString& section, const QString& key);
// Booleans are written as 0 or 1, numbers in decimal, everything else as its text.
bool StoreSettings(const QString& section, const QString& key, const QVariant& value,
                   const QString& file = QString());

// The options of section Optionen that the window holds. Everything starts at 0 on purpose:
// when a value in the file does not convert, the load stops there and the fields behind it
// keep what they held, which for a fresh record is 0, not the table's default.
struct MainOptions {
  int NoHardlinks = 0;
  int FolderColorFade = 0;
  int Kontextmenu = 0;
  int Instanz = 0;
  int ShowIcons = 0;
  int ShowIconsTop = 0;
  int FileSizeFormat = 0;
  int FileSizeFormatDrive = 0;
  int FileSizeFormatFiles = 0;
  int FileSizeFormatTop = 0;
  int SizeFormatNachkommastellenFolders = 0;
  int SizeFormatNachkommastellenDrive = 0;
  int SizeFormatNachkommastellenFiles = 0;
  int SizeFormatNachkommastellenTop = 0;
  int DiskinfoVisible = 0;
  int FilelistVisible = 0;
  int ToplistVisible = 0;
  int ColPercentVisible = 0;
  int ColFileVisible = 0;
  int ColFolderVisible = 0;
  int FileColumn[7] = {};
  int TopColumn[8] = {};
  double FontSize = 0;
  int BigIcons = 0;
  int SymbolText = 0;
  int FilePreview = 0;
  int FilelistTile = 0;
  QString ComboText;
  int SizeAllocated = 0;
  int LinksOnce = 0;
  // Snapshots: one kept after each completed scan of a source; the last SnapshotKeep of each,
  // SnapshotBudgetMB for all of them (0: no limit).
  int Snapshots = 0;
  int SnapshotKeep = 0;
  int SnapshotBudgetMB = 0;

  bool operator==(const MainOptions&) const = default;
};

// Reads every key of Optionen in the table's order, in one read of the file. A value that does
// not convert ends the load: it is reported through FailureReport and false comes back.
bool OptionenLadenMain(MainOptions& o, const QString& file = QString());
// Writes what the window owns at exit: the check marks it copied into `o`, the size units, the
// font size and ComboText. NoHardlinks, FolderColorFade, Kontextmenu and Instanz belong to the
// options dialog and the start, which write them at once, so they are left alone here.
bool OptionenSpeichernMain(const MainOptions& o, const QString& file = QString());

// Section Form, all in twips (1440 per inch).
struct FormPosition {
  int WindowState = 0;  // 0 normal, 1 minimised, 2 maximised
  int Left = 0;
  int Top = 0;
  int Width = 0;
  int Height = 0;
  int TVW = 0;  // width of the report pane
};

inline constexpr int kTvwFallback = 2190;

inline int pixelsToTwips(double pixels, double dpi) {
  return static_cast<int>(pixels * 1440.0 / dpi);
}
inline double twipsToPixels(int twips, double dpi) {
  return twips * dpi / 1440.0;
}

// Left and top that centre a window of that size on the screen.
int centredLeft(int screenWidth, int width);
int centredTop(int screenHeight, int height);
// Left or Top below 0 or beyond the screen become 0, a TVW wider than the window becomes 2190;
// the size itself is left as it is.
FormPosition correctFormPosition(FormPosition p, int screenWidth, int screenHeight);
// The stored state as the window comes up: minimised comes back as normal.
int windowStateAtStart(int stored);

// Height, Width, then Left and Top (centred by default) and TVW, corrected for the screen.
// WindowState is read too, as windowStateAtStart gives it. A value that does not convert is
// reported and its default taken.
FormPosition FensterpositionLaden(int screenWidth, int screenHeight,
                                  const QString& file = QString());
// `p` holds the normal rectangle also for a maximised or minimised window; WindowState as it is.
bool FensterpositionSpeichern(const FormPosition& p, const QString& file = QString());

// Any numbered list of byte values, read up to the first missing key.
std::vector<std::string> readSentinelList(const ProfileDocument& doc, const QString& section,
                                          const QString& prefix);
// Deletes the section and writes the values as prefix0, prefix1, ...
void writeSentinelList(ProfileDocument& doc, const QString& section, const QString& prefix,
                       const std::vector<std::string>& values);

// The image of a folder entry of the sources box; drives carry other images and are not kept.
inline constexpr int kComboFolderImage = 8;
inline constexpr int kComboFoldersKept = 10;

// Folders are kept as their bytes: a name that is not UTF-8 comes back as it was.
struct ComboItem {
  std::string path;
  int image = 0;
};

struct SavedComboFolders {
  QString comboText;                 // Optionen/ComboText, the box's text at the last exit
  std::vector<std::string> folders;  // in key order, not checked for existence
};

SavedComboFolders GetAllSavedComboFolders(const QString& file = QString());
// Walks `items` (in the box's order) from the last to the first and keeps folder entries that
// are not blank, at most ten: those nearest the end of the box come first in the file.
bool SaveAllComboFolders(const QList<ComboItem>& items, const QString& file = QString());

// Section DriveFolders: the network locations of the drive table.
std::vector<std::string> LoadSavedNetworkFolders(const QString& file = QString());
bool SaveNetworkFolders(const std::vector<std::string>& paths, const QString& file = QString());

// Section Exclude: the shell patterns of names and paths the walk leaves out, one a key.
std::vector<std::string> LoadExcludePatterns(const QString& file = QString());
bool SaveExcludePatterns(const std::vector<std::string>& patterns, const QString& file = QString());

}  // namespace ql
