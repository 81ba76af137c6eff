// Standard output is checked like any other output: a write that fails (a full
// disk, /dev/full, a closed descriptor) ends the command with status 2 and the
// reason, instead of a silent success. Commands flush after each piece of output;
// main closes it at the end.
#pragma once

namespace kxhost {

// Flushes standard output; throws CliError ("cannot write standard output: REASON").
void FlushStandardOutput();
// Flushes and closes standard output; throws CliError as above.
void CloseStandardOutput();

}  // namespace kxhost
