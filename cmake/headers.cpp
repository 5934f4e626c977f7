// SPDX-License-Identifier: MIT
// The library that holds the headers needs a source.
