// How the web client record reaches the HTTP connection code, which lives in its own files.
#pragma once

#include "ox/webclient.h"

OXStatus oxHtCreateConnection(OXWebClient_S* wc, OX_POOL_S* pool, const char* host, uint16_t port,
                              OXBoolean useSSL, SSLOptions_S* sslOptions, HTConnection_S** out);
