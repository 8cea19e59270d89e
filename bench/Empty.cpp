// SPDX-License-Identifier: MIT
// A library with nothing in it.
