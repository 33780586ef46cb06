#include "files/OperationLine.h"

#include <QCoreApplication>

namespace OperationLine {

QString names(const QStringList& names)
{
    // Three names still read well; past that the line would grow with every check.
    constexpr qsizetype shown = 2;
    if (names.size() > shown + 1) {
        //: Recipients shortened: %1 and %2 are names, %3 how many more are checked
        //% "%1, %2 and %3 more"
        return qtTrId("lineNamesMore").arg(names.at(0), names.at(1)).arg(names.size() - shown);
    }
    if (names.size() == 3) {
        //: Three recipients' names
        //% "%1, %2 and %3"
        return qtTrId("lineNamesThree").arg(names.at(0), names.at(1), names.at(2));
    }
    if (names.size() == 2) {
        //: Two recipients' names
        //% "%1 and %2"
        return qtTrId("lineNamesTwo").arg(names.at(0), names.at(1));
    }
    return names.value(0);
}

namespace {

QString filesPart(int marked, int listed)
{
    if (listed == 1) {
        //: Beside the operation button: the one listed file is marked
        //% "1 of 1 file"
        return qtTrId("lineOneOfOneFile");
    }
    //: Beside the operation button: %1 files marked of %2 listed
    //% "%1 of %2 files"
    return qtTrId("lineFiles").arg(marked).arg(listed);
}

QString recipientsPart(const Recipients& recipients)
{
    const QString who = names(recipients.names);
    if (recipients.people == 1) {
        //: Who the files are for: %1 names the checked users and groups, which stand for one person
        //% "%1 (1 person)"
        return qtTrId("lineForOnePerson").arg(who);
    }
    //: Who the files are for: %1 names the checked users and groups, %2 how many people they are
    //% "%1 (%2 people)"
    return qtTrId("lineForPeople").arg(who).arg(recipients.people);
}

} // namespace

QString text(int marked, int listed, const std::optional<Recipients>& recipients)
{
    const bool encrypt = recipients.has_value();
    const bool anyone = encrypt && recipients->people > 0;
    if (listed == 0 && !encrypt) {
        //: Beside the Decrypt button while its list is empty
        //% "Add the files to decrypt"
        return qtTrId("lineAddToDecrypt");
    }
    if (listed == 0 && anyone) {
        //: Beside the Encrypt button while its list is empty; %1 says who the files would be for
        //% "Add the files to encrypt for %1"
        return qtTrId("lineAddToEncryptFor").arg(recipientsPart(*recipients));
    }
    if (listed == 0) {
        //: Beside the Encrypt button while its list is empty and nobody is chosen
        //% "Add the files to encrypt and choose who may open them"
        return qtTrId("lineAddAndChoose");
    }
    if (marked == 0 && !encrypt) {
        //: Beside the Decrypt button while no file is marked
        //% "Mark the files to decrypt"
        return qtTrId("lineMarkToDecrypt");
    }
    if (marked == 0 && anyone) {
        //: Beside the Encrypt button while no file is marked; %1 says who they would be for
        //% "Mark the files to encrypt for %1"
        return qtTrId("lineMarkToEncryptFor").arg(recipientsPart(*recipients));
    }
    if (marked == 0) {
        //: Beside the Encrypt button while no file is marked and nobody is chosen
        //% "Mark the files to encrypt and choose who may open them"
        return qtTrId("lineMarkAndChoose");
    }
    if (!encrypt)
        return filesPart(marked, listed);
    if (!anyone) {
        //: Beside the Encrypt button while files are marked but nobody is chosen; %1 counts the files
        //% "%1: choose who may open them"
        return qtTrId("lineChoose").arg(filesPart(marked, listed));
    }
    //: Beside the Encrypt button: %1 counts the marked files, %2 says who they are for
    //% "%1 for %2"
    return qtTrId("lineFilesFor").arg(filesPart(marked, listed), recipientsPart(*recipients));
}

} // namespace OperationLine
