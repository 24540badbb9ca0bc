// The configuration check run (`vyrvip --test RESOURCE`): reads the
// check-log location, checks one virtual IP resource and writes the verdict
// to the check log. Main thread only; starts no worker.
#pragma once

// Everything after the root check and the initialisation: 0 when the
// resource's settings are valid and the verdict reached the check log,
// else 1.
int vip_check_run(int argc, char** argv, const char* srcrev, const char* srcdate);
