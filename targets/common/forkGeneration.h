// Which process a target's state belongs to: a number that every fork child increments (through
// pthread_atfork). A thread, a lock or a buffer that a parent built is the parent's; a target that
// finds another number is in a child and must neither use, flush nor join that state.
#pragma once

#include <mutex>
#include <pthread.h>

unsigned processGeneration();

// For a fork child handler: the child's copy of a lock that another thread may have held at the
// fork, made free. A lock that was free is taken and released rather than built anew, which tells
// a thread checker that the child's later use follows the parent threads' last one.
void freeInForkChild(std::mutex& mutex);
// The same for a POSIX mutex; returns with it held, so that what the child resets next is ordered
// after the parent threads' last use too.
void lockInForkChild(pthread_mutex_t& mutex);
