// SPDX-License-Identifier: MIT
// A library that calls a function which nothing has.

extern "C" void missing_function();

extern "C" void call_missing_function() {
    missing_function();
}
