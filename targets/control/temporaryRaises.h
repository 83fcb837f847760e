// Masks set for a while (vexlorctl set ... --for 10m): what each component goes back to, and when.
// The control thread sets them, sleeps until the next one is due and then restores the mask it
// replaced, with nobody watching. A mask that changed meanwhile (a configuration read that names
// the component, another set) is left as it is: the raise ends without a word.
#pragma once

#include <chrono>
#include <string>
#include <vector>

struct vexlor_component;

namespace temporaryRaises {

using CClock = std::chrono::steady_clock;

struct CRaise {
    std::string component;
    unsigned int raised;  // the mask set for a while
    unsigned int restore;  // the mask in force before
    CClock::time_point due;
};

// What `component`, whose mask is `current`, goes back to after a raise: the mask a pending
// raise restores, else `current`.
unsigned int restoreOf(const std::string& component, unsigned int current);
// `component` was set to `raised` for `duration`, then goes back to `restore`.
void add(const std::string& component, unsigned int restore, unsigned int raised, std::chrono::seconds duration);
// A set without a duration: the mask lasts as it did before.
void cancel(const std::string& component);
// The configuration set `component`'s mask (or the program asked for it again): a raise whose
// mask it replaced ends.
void maskSet(const vexlor_component& component);
// Milliseconds until the next raise is due (0 when one is); -1 when none is pending.
int msUntilDue();
// The raises that are due, taken out of the list.
std::vector<CRaise> takeDue();
// The raises still in force, in the order of their components.
std::vector<CRaise> pending();

}  // namespace temporaryRaises
