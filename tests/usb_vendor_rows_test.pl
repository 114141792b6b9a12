#!/usr/bin/perl
# What the build makes of lists of USB vendor names, and which lists it refuses. Called with the
# path of the generator.
use strict;
use warnings;
use File::Temp 'tempdir';

my $generator = shift;
chdir tempdir(CLEANUP => 1) or die;

# Both forms give the same rows, in the order of the lists.
my $rows = <<'END';
"7	Seven\0"
"3	one\0"
"7	Z\0"
"1	Ö-nell\0"
"3	ABC\0"
"65535	\"A\\B\" \?\?/\0"
END
# Lists, what is written of each behind a list of one row, and what is said.
my @cases = (["# rows\n\n3\tone\n7\tZ\n1\tÖ-nell\n3\tABC\n65535\t\"A\\B\" ??/", $rows, ''], [<<'END', $rows, '']);
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
push @cases, map { [$_->[0], '', "list:$_->[1]\n"] } (
    ["1\tA\n65536\tB\n",       '2: id above 65535'],
    ["0001  A\n0002   \n",     '2: empty name'],
    ["1\tA\n-1\tB\n",          '2: not "id TAB name"'],
    ["0001  A\n2  B\n",         '2: not four hexadecimal digits, two blanks and a name'],
    ["1\tA\r\n",               '1: control character'],
    ["1\tA\xe2\x80\xae\n",     '1: control character'],
    ["1\tA\n\n2\t\xc3\n",      '3: not UTF-8'],
    ["1\t\xed\xa0\x80\n",      '1: not UTF-8'],
    ["# nothing\n",            '1: no vendor in the list'],
);

my $failures = 0;
for my $case (@cases) {
    my ($list, $written, $said) = @$case;
    for (['first', "7\tSeven\n"], ['list', $list]) {
        open my $file, '>:raw', $_->[0] or die;
        print {$file} $_->[1];
        close $file or die;
    }
    my $is = `rm -f rows; perl '$generator' rows first list 2>&1; test \$? != 0 || echo taken; cat rows 2>&1`;
    my $should = $said . ($said eq '' ? "taken\n$written" : "cat: rows: No such file or directory\n");
    next if $is eq $should;
    print "For the list\n$list\nthis was made:\n$is\nand not\n$should\n";
    $failures++;
}
exit($failures == 0 ? 0 : 1);
