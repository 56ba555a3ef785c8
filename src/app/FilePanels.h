// The file panels: "Open Audio File" and "Add Files to Compare".
//
// Both list audio files first and offer "All files" too, because any file, whatever its name,
// may be opened: one the decoders can't read goes on to the raw-PCM road. Several files may be
// picked. Open hands them to openURLs (the first is loaded, the others become compare slots);
// Add appends each as a compare slot, in order, up to six slots.
//
// Thread class: main thread; each runs a modal dialog.
#pragma once

#include <QList>
#include <QStringList>
#include <QUrl>

class QWidget;

namespace corvane {

class AudioEngine;

// The name filters: the audio types first, then "All files (*)".
QStringList audioFileNameFilters();

inline constexpr const char* kOpenPanelTitle = "Open Audio File";
inline constexpr const char* kOpenPanelMessage =
    "Pick one file to analyse, or several to load directly into Compare (first is the primary file; the rest become "
    "slots B onward). Headerless raw PCM (.pcm / .raw / .bin / anything) opens via a declared format.";
inline constexpr const char* kAddToComparePanelMessage = "Pick one or more files to append to the current comparison.";

// The dialog; the files picked, none when cancelled.
QList<QUrl> runAudioFilePanel(QWidget* parent, const QString& title, const QString& message);

void openFilePanel(QWidget* parent, AudioEngine& engine);
void addFilesToComparePanel(QWidget* parent, AudioEngine& engine);

}  // namespace corvane
