#pragma once

#include <QByteArray>
#include <QString>

namespace mirrowisp {

// The doctor's JSON report as the readable text `mirrowisp ctl doctor` prints.
QString formatDoctorReport(const QByteArray& json);
// The rules' JSON as a table, grouped by agent and project.
QString formatRules(const QByteArray& json);

} // namespace mirrowisp
