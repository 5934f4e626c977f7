// SPDX-License-Identifier: MIT
// What most units of bench and tests include; each includes what it needs all the same.

#pragma once

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSocketNotifier>
#include <QStringList>
#include <QTextStream>
#include <QThread>
#include <QTimer>
#include <QVector>
#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>
