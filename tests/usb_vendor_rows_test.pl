#!/usr/bin/perl
# What the build makes of lists of USB vendor names, and which lists it refuses. Called with the
# path of the generator.
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

# What is written and said for a list behind another that has the row "7 TAB Seven".
sub expect {
    my ($list, $rows, $complaint) = @_;
    write_file('first', "7\tSeven\n");
    write_file('list', $list);
    unlink 'rows';
    my $said = `perl '$generator' rows first list 2>&1`;
    my $made = -e 'rows' ? `cat rows` : 'nothing';
    return if $made eq $rows && $said eq $complaint && ($? != 0) == ($complaint ne '');
    print "For the list\n$list\nthis was made:\n$made\nand said:\n$said\n";
    $failures++;
}

# Both forms give the same rows, in the order of the lists.
my $rows = <<'END';
"7	Seven\0"
"3	one\0"
"7	Z\0"
"1	Ö-nell\0"
"3	ABC\0"
"65535	\"A\\B\" \?\?/\0"
END
expect("# rows\n\n3\tone\n7\tZ\n1\tÖ-nell\n3\tABC\n65535\t\"A\\B\" ??/", $rows, '');
expect(<<'END', $rows, '');
# usb.ids
0003  one
	0001  device
		01  interface
0007  Z
0001  Ö-nell
0003  ABC
ffff  "A\B" ??/

C 00  (Defined at Interface level)
0004  no vendor
END

my @refused = (
    ["1\tA\n65536\tB\n",        '2: id above 65535'],
    ["1\tA\n2\t\n",             '2: empty name'],
    ["0001  A\n0002   \n",      '2: empty name'],
    ["1\tA\n-1\tB\n",           '2: not "id TAB name"'],
    ["1\tA\n0002  B\n",         '2: not "id TAB name"'],
    ["0001  A\n2\tB\n",         '2: not four hexadecimal digits, two blanks and a name'],
    ["1\tA\r\n",                '1: control character'],
    ["1\tA\n\n2\t\xc3\n",       '3: not UTF-8'],
    ["1\t\xed\xa0\x80\n",       '1: not UTF-8'],
    ["# nothing\n",             '1: no vendor in the list'],
);
expect($_->[0], 'nothing', "list:$_->[1]\n") for @refused;
exit($failures == 0 ? 0 : 1);
