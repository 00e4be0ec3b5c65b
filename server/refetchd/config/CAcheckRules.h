// The mistakes that show only in the whole configuration.
#pragma once

struct CACheck;

// Adds warnings and notes to what was read. `forService`: the configuration is that of a service of
// the Debian package, and the process has the service's user. Main thread.
void CAJudgeSettings(CACheck *check, bool forService);
