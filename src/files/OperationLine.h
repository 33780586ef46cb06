#pragma once

#include <QStringList>

#include <optional>

// The line beside an operation button: what pressing it will do ("2 of 12 files for Ann Lee
// and Family (3 people)"), or, while it is off, what is missing ("Mark the files to encrypt").
namespace OperationLine {

struct Recipients
{
    QStringList names; // the checked users and groups, in the list's order
    int people = 0; // the distinct addresses they stand for
};

// `recipients` is given on the Encrypt screen only.
QString text(int marked, int listed, const std::optional<Recipients>& recipients);

// Names as one phrase: "A", "A and B", "A, B and C", and past three "A, B and N more".
QString names(const QStringList& names);

} // namespace OperationLine
