// The host's in-process application registry: launch requests for an application id go to the
// handler registered under it, on the main loop.
#ifndef ORVEX_HOST_APP_REGISTRY_H
#define ORVEX_HOST_APP_REGISTRY_H

#include "platform/app_control.h"
#include "platform/bundle.h"

namespace orvex_host {

// Handles one launch request; the request is valid during the call only.
using AppHandler = void (*)(app_control_h request);

// Meant for static initialisers, like onReset().
bool registerApp(const char* appId, AppHandler handler);

// Posts a copy of message to the local port named portName, delivered on the main loop as sent by
// remoteAppId. Returns MESSAGE_PORT_ERROR_PORT_NOT_FOUND when no such port is registered now.
int postToLocalPort(const char* portName, const char* remoteAppId, bundle* message);

}  // namespace orvex_host

#endif
