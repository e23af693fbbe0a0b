#ifndef VELDAN_POSTGRESQL_SERVER_H
#define VELDAN_POSTGRESQL_SERVER_H

// The server's headers that have to come before its others.
// clang-format off
#include <postgres.h>
#include <fmgr.h>
// clang-format on

#endif
