#pragma once

namespace qvnhost {

// qvnhost info [--module PATH]: start-up, begin and end instance; prints the module's identity and checks
// that every suite it acquired was released with the same version.
int InfoCommand(int argc, char** argv);

} // namespace qvnhost
