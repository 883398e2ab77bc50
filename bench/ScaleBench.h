// SPDX-License-Identifier: Apache-2.0
// ScaleBench: ornsim at the scale of a big home and many clients: start-up, a group
// directive with a group subscription, and memory after many client names come and go.
#pragma once

#include <string>

namespace ornbench {

// Start-up with `devices` devices in one group (and --state), then turnOn/turnOff of that
// group with a group subscription in place, then turnOns of one device. False when ornsim fails to
// serve it.
bool runGroupDirective(const std::string& ornsim, int devices);

// `names` client names each connect, subscribe, delete and leave; then 2,048 subscribe
// and leave without deleting. Prints ornsim's memory and a turnOn's time after each.
bool runClientNames(const std::string& ornsim, int names);

}  // namespace ornbench
