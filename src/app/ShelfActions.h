#pragma once

#include "shelf/ShelfConversionJob.h"
#include "shelf/ShelfConverter.h"

#include <QString>
#include <QUuid>
#include <functional>
#include <optional>

namespace mirrowisp {

class AgentSession;
class AppModel;
struct ProcessContext;

// What the shelf's menu and `mirrowisp ctl shelf` do beyond the store itself: conversions whose
// results join the shelf, and handing a shelf file to a running agent.
namespace ShelfActions {

// Converts the files of the entry (or item) of that id off the main thread; the results join the
// shelf (one as a plain item, several as a stack) and `done` gets the report. The job, owned by the
// app model until it ends, gives the progress and takes a cancel. Null when no entry or item has that
// id.
ShelfConversionJob* convert(AppModel& app, const QUuid& id, const ShelfConverter::Conversion& conversion,
                            std::function<void(const ShelfConverter::Report&)> done);

// Types the path of each file of that entry or item at the session's terminal prompt, without Enter,
// through tmux, kitty or WezTerm; where no terminal can be reached, the paths go to the clipboard
// instead. `done` gets the way they went: "tmux", "kitty", "wezterm" or "clipboard". False when no
// entry or item has that id.
bool send(AppModel& app, const QUuid& id, const AgentSession& session, std::function<void(QString)> done);

// The text a path is pasted as: quoted for a shell when it holds spaces or quotes, then a space.
QString pastedPath(const QString& path);

// Pastes `text` into the tmux pane of `context` (bracketed, so the prompt takes it as a paste). Blocks;
// off the main thread. False when the context names no tmux pane or tmux refused.
bool pasteIntoTmux(const QString& text, const ProcessContext& context);

// Types `text` into the terminal of `context` by the first way that reaches it: the tmux pane the agent
// runs in, else its kitty window, else its WezTerm pane. Blocks; off the main thread. Names the way
// ("tmux", "kitty", "wezterm"), or nothing when none reached it.
std::optional<QString> typeIntoTerminal(const QString& text, const ProcessContext& context);

} // namespace ShelfActions

} // namespace mirrowisp
