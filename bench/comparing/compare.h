// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>

/// `pvm-bench compare`, with its arguments: plays drives with two controllers in virtual time and
/// tells in which facts they differ. Returns 1 if they do, and else what pvm-bench returns; what is
/// wrong goes to standard error.
int compare(const QStringList &arguments);
