#pragma once

namespace mirrowisp {

// The application entry: builds the Qt application (a GUI one when a display is there, a bare one
// otherwise), starts the model, and turns SIGINT, SIGTERM and SIGHUP into an orderly quit.
int runMirrowisp(int argc, char** argv);

} // namespace mirrowisp
