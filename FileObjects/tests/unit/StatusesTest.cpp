#include "Statuses.h"
#include "Core/Exception.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace {

using namespace FileObjects;

TEST(AStatus, SaysMostAboutAnErrno)
{
    const std::vector<std::pair<int, std::uint32_t>> table = {
        {ENOENT, 0x803E0000},       {ENOTDIR, 0x803E0000},     {ELOOP, 0x803E0000},
        {EXDEV, 0x803E0000},        {ENXIO, 0x803E0000},       {ESTALE, 0x803E0000},
        {EACCES, 0x801F0000},       {EPERM, 0x801F0000},       {EROFS, 0x803B0000},
        {EEXIST, 0x80610000},       {EISDIR, 0x80610000},      {ENAMETOOLONG, 0x80600000},
        {EILSEQ, 0x80600000},       {EBUSY, 0x80AF0000},       {ETXTBSY, 0x80AF0000},
        {ENOTEMPTY, 0x80AF0000},    {EAGAIN, 0x80AF0000},      {EINVAL, 0x80AB0000},
        {ENOSPC, 0x80040000},       {EDQUOT, 0x80040000},      {EFBIG, 0x80040000},
        {EMFILE, 0x80040000},       {ENFILE, 0x80040000},      {ENOMEM, 0x80030000},
        {EIO, 0x808B0000},          {ENOTCONN, 0x80310000},    {ETIMEDOUT, 0x800A0000},
        {EOPNOTSUPP, 0x803D0000},   {ENOSYS, 0x803D0000},      {EDOM, 0x80010000},
        {EHOSTUNREACH, 0x80310000}, {ECONNABORTED, 0x80310000}};
    for (const auto& [error, status] : table)
        EXPECT_EQ(ToStatus(error), status) << error;
}

TEST(AStatus, ComesWithTheSystemsOwnWords)
{
    try {
        RefuseWithErrno("files/a", ENOSPC);
        FAIL() << "nothing was thrown";
    } catch (const Core::StatusException& refusal) {
        EXPECT_EQ(refusal.GetStatus(), 0x80040000U);
        EXPECT_EQ(refusal.GetMessage(), "files/a: No space left on device");
    }
}

} // namespace
