// AppCommands: the window's commands, for every feature the window has, registered in the
// command table with their menus.
//
// File: "Open Audio File…" (Ctrl+O), "Open Recent", "Add Files to Compare…" (Shift+Ctrl+O),
// "Reinterpret Raw Format…", "Quit" (Ctrl+Q). View: the transport (Space, Ctrl+., [ ] \, the
// arrows, L), "Clear Selection", "Select All" (Ctrl+A), "Show Info Panel" (Ctrl+I), the six
// panel toggles (Meta+1…6) and focus commands (Meta+Alt+1…6). Window: "Output Panel"
// (Alt+Ctrl+O). Help: "About Corvane". Keys are written in their Linux form.
//
// Commands that act on a file are disabled while none is loaded; "Clear Selection" only with a
// selection, "Reinterpret Raw Format…" only for a file that came in raw. The table re-reads
// enablement when the session's file, loading state, selection or loop flag change.
//
// Thread class: main thread.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>

namespace corvane {

class AudioEngine;
class CommandTable;
class NotificationBus;

// Menu paths and groups later subsystems add to.
namespace app_menu {
inline const QString file = QStringLiteral("File");
inline const QString edit = QStringLiteral("Edit");
// Undo and Redo, the save commands, then the editor's groups (EditMenuCommands).
inline const QStringList editGroups{QStringLiteral("undo"), QStringLiteral("save"), QStringLiteral("cut"),
                                    QStringLiteral("playhead"), QStringLiteral("fades"), QStringLiteral("gain")};
inline const QString view = QStringLiteral("View");
inline const QString window = QStringLiteral("Window");
inline const QString help = QStringLiteral("Help");
}  // namespace app_menu

// What the commands reach outside the session.
struct AppCommandHooks {
  std::function<void()> quit{};                // the window's close road (asks before quitting)
  std::function<bool()> isInfoPanelShown{};    // null: the stored setting
  std::function<void(bool)> setInfoPanelShown{};
  std::function<void()> about{};               // the About box; null: no such command
};

// Declares the menus and adds the commands. The table's `fileLoaded` should answer whether the
// session holds a file.
void registerAppCommands(CommandTable& commands, AudioEngine& engine, NotificationBus& bus, AppCommandHooks hooks = {});

}  // namespace corvane
