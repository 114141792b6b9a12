#!/usr/bin/perl
# What the build makes of a list of USB vendor names, and which lists it refuses. Called with
# the path of the generator.
use strict;
use warnings;
use File::Temp 'tempdir';

my $generator = shift;
chdir tempdir(CLEANUP => 1) or die;
my $failures = 0;

sub write_file {
    my ($name, $text) = @_;
    open my $file, '>:raw', $name or die;
    print {$file} $text;
    close $file or die;
}

sub contents {
    my ($name) = @_;
    open my $file, '<:raw', $name or return 'nothing';
    return join '', <$file>;
}

# The rows, or the complaint, for a list and the overriding row "7 TAB Seven".
sub expect {
    my ($list, $expected_rows, $expected_complaint) = @_;
    write_file('overrides', "7\tSeven\n");
    write_file('list', $list);
    unlink 'rows';
    my $refused = system("perl '$generator' overrides list rows 2>complaint") != 0;
    my $result = contents('rows') . ($refused ? '|refused|' : '|made|') . contents('complaint');
    my $expected = $expected_rows . ($expected_complaint ? "|refused|" : "|made|");
    return if $result eq $expected . $expected_complaint;
    print "For the list\n$list\nthis was made:\n$result\n\n";
    $failures++;
}

sub expect_refused {
    my ($list, $complaint) = @_;
    expect($list, 'nothing', "list:$complaint\n");
}

# Both forms give the same rows, in dictionary order, and of two with one id the earlier.
my $rows = <<'END';
USB_VENDOR_ROW(65535, "\"A\\B\" \?\?/")
USB_VENDOR_ROW(3, "one")
USB_VENDOR_ROW(2, "O'Neil")
USB_VENDOR_ROW(1, "Ö-nell")
USB_VENDOR_ROW(7, "Seven")
END
expect("# rows\n\n3\tone\n7\tZ\n1\tÖ-nell\n3\tABC\n2\tO'Neil\n65535\t\"A\\B\" ??/", $rows, '');
expect(<<'END', $rows, '');
# usb.ids
0003  one
	0001  device
		01  interface
0007  Z
0001  Ö-nell
0003  ABC
0002  O'Neil
ffff  "A\B" ??/

C 00  (Defined at Interface level)
0004  no vendor
END

expect_refused("1\tA\n65536\tB\n", '2: id above 65535');
expect_refused("1\tA\n2\t\n", '2: empty name');
expect_refused("0001  A\n0002   \n", '2: empty name');
expect_refused("1\tA\n-1\tB\n", '2: not "id TAB name"');
expect_refused("1\tA\n0002  B\n", '2: not "id TAB name"');
expect_refused("0001  A\n2\tB\n", '2: not four hexadecimal digits, two blanks and a name');
expect_refused("1\tA\r\n", '1: control character');
expect_refused("1\tA\n\n2\t\xc3\n", '3: not UTF-8');
expect_refused("1\t\xed\xa0\x80\n", '1: not UTF-8');
expect_refused("# nothing\n", '1: no vendor in the list');
exit($failures == 0 ? 0 : 1);
