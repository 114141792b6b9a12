/// The USB vendor names: what the build makes of a list, and what the table built in finds.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "usb_power/usb_vendor_names.h"

namespace {

std::string contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The rows that the generator makes of `list` and of the override "7 TAB Seven", or its
/// complaint behind "refused ".
std::string rows_of(const std::string& list)
{
    const std::string folder = testing::TempDir() + "usb_vendor_rows." + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/overrides", std::ios::binary) << "7\tSeven\n";
    std::ofstream(folder + "/list", std::ios::binary) << list;
    const std::string command =
        "cd " + folder + " && perl " USB_VENDOR_GENERATOR " overrides list rows 2>complaint";
    const bool made = std::system(command.c_str()) == 0;
    const bool written = std::filesystem::exists(folder + "/rows");
    std::string result = contents(folder + (made ? "/rows" : "/complaint"));
    std::filesystem::remove_all(folder);
    return made == written ? (made ? result : "refused " + result) : "rows of a refused list";
}

TEST(UsbVendorRows, BothFormsGiveTheSameRowsInDictionaryOrder)
{
    const char* expected = R"-(USB_VENDOR_ROW(65535, "\"A\\B\" \?\?/")
USB_VENDOR_ROW(3, "one")
USB_VENDOR_ROW(3, "ONE")
USB_VENDOR_ROW(2, "O'Neil")
USB_VENDOR_ROW(1, "Ö-nell")
USB_VENDOR_ROW(7, "Seven")
)-";
    EXPECT_EQ(rows_of("# rows\n\n3\tone\n7\tZ\n1\tÖ-nell\n3\tONE\n2\tO'Neil\n65535\t\"A\\B\" ?\?/"),
              expected);
    EXPECT_EQ(rows_of("# usb.ids\n0003  one\n\t0001  device\n\t\t01  interface\n0007  Z\n"
                      "0001  Ö-nell\n0003  ONE\n0002  O'Neil\nffff  \"A\\B\" ?\?/\n\n"
                      "C 00  (Defined at Interface level)\n0004  no vendor\n"),
              expected);
}

TEST(UsbVendorRows, MalformedListIsRefusedWithItsLine)
{
    EXPECT_EQ(rows_of("1\tA\n65536\tB\n"), "refused list:2: id above 65535\n");
    EXPECT_EQ(rows_of("1\tA\n2\t\n"), "refused list:2: empty name\n");
    EXPECT_EQ(rows_of("0001  A\n0002   \n"), "refused list:2: empty name\n");
    EXPECT_EQ(rows_of("1\tA\n-1\tB\n"), "refused list:2: not \"id TAB name\"\n");
    EXPECT_EQ(rows_of("1\tA\n0002  B\n"), "refused list:2: not \"id TAB name\"\n");
    EXPECT_EQ(rows_of("0001  A\n2\tB\n"),
              "refused list:2: not four hexadecimal digits, two blanks and a name\n");
    EXPECT_EQ(rows_of("1\tA\r\n"), "refused list:1: control character\n");
    EXPECT_EQ(rows_of("1\tA\n\n2\t\xc3\n"), "refused list:3: not UTF-8\n");
    EXPECT_EQ(rows_of("1\t\xed\xa0\x80\n"), "refused list:1: not UTF-8\n");
    EXPECT_EQ(rows_of("# nothing\n"), "refused list:1: no vendor in the list\n");
}

TEST(UsbVendorRows, RowsThatTheServiceAnswersForAreFound)
{
    EXPECT_STREQ(find_usb_vendor_name(0), "USB Implementers Forum");
    EXPECT_STREQ(find_usb_vendor_name(0x120D), "(AVL) DiTEST Fahrzeugdiagnose GmbH");
    EXPECT_STREQ(find_usb_vendor_name(0x17CC), "Native Instruments GmbH");
    EXPECT_STREQ(find_usb_vendor_name(0x0586), "ZyXEL Communications Corp");
    EXPECT_EQ(find_usb_vendor_name(0xFFFF), nullptr);
}

}  // namespace
