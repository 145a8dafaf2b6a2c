// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tqtortho::app {

/// Watches for Ctrl-C and termination in a thread of its own, for the rest of the process. To be
/// called first of all, before any other thread is there.
///
/// The first signal raises processStop; work polls it, gives up and the command ends in its orderly
/// way. A job that has not ended a moment later (some call of a library cannot be broken off), or
/// is sent a second signal, is ended at once: files get their final names by renaming only, so this
/// is as safe as being killed, and what it leaves is cleaned up by the next run.
///
/// For tests, TQTORTHO_STOP_WATCHDOG=off leaves out the end by force, and =only the flag.
void WatchForStops();

/// True for one caller only: who says that the job was interrupted.
[[nodiscard]] bool TakeLastWord();

}  // namespace tqtortho::app
