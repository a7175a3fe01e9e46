# SPDX-License-Identifier: Apache-2.0
# Looks through a state folder before a script reads or writes anything in it, and closes it to
# everybody else: whoever could put a file of theirs there, or a link, would have whoever runs the
# script do what it says. virtual_switch/model/state_folder.cpp does the same for the switch, which also
# runs without the scripts. In Perl, since this comes before there is anything built; a Debian
# system cannot be without perl-base.
#
# perl state_folder.pl FOLDER: ends with 0, or prints one sentence and ends with 1. FOLDER exists.
use strict;
use warnings;
use Errno;
use Fcntl qw(:mode O_RDONLY O_DIRECTORY O_NOFOLLOW);

# Others may enter the folder, so that the permissions of what is in it count.
my $is_open;

sub refuse {
    my $sentence = shift;
    # Names of files may hold anything.
    $sentence =~ s/[[:cntrl:]]/?/g;
    print "$sentence\n";
    exit 1;
}

sub user_name {
    my $number = shift;
    return getpwuid($number) // "user $number";
}

# Opens a folder, but not what a link leads to. Nothing if it has gone meanwhile.
sub open_folder {
    my ($name, $path) = @_;
    my $folder;
    return $folder if sysopen $folder, $name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
    refuse("cannot read $path: " . lcfirst "$!") unless $!{ENOENT};
    return;
}

sub check_entry {
    my ($path, $mode, $owner) = @_;
    refuse("$path is a link, and links in a state folder are not followed: put there what it leads to")
        if S_ISLNK($mode);
    refuse("$path is no file, folder or socket") unless S_ISREG($mode) || S_ISDIR($mode) || S_ISSOCK($mode);
    if ($owner != $> && $owner != 0) {
        my ($other, $self) = (user_name($owner), user_name($>));
        refuse("$path belongs to $other, and not to $self: look through it and make it yours (chown -R $self), "
            . "or run this as $other or choose another --state");
    }
    refuse("$path can be written by others than its owner: look at what it holds, then take that away (chmod go-w)")
        if $is_open && $mode & 022 && !S_ISSOCK($mode);
}

# Enters a folder: the names in it are then those in the descriptor's folder, wherever its path leads by now.
sub names_in {
    my ($path, $folder) = @_;
    chdir $folder && opendir my $names, '.' or refuse("cannot read $path: " . lcfirst "$!");
    return grep { $_ ne '.' && $_ ne '..' } readdir $names;
}

sub check_folder {
    my ($path, $folder) = @_;
    for my $name (names_in($path, $folder)) {
        my ($inner, $inner_path) = (undef, "$path/$name");
        # What comes and goes while the agent runs may have gone.
        my @status = lstat $name or next;
        check_entry($inner_path, @status[2, 4]);
        next unless S_ISDIR($status[2]) && defined($inner = open_folder($name, $inner_path));
        check_entry($inner_path, (stat $inner)[2, 4]);
        check_folder($inner_path, $inner);
        chdir $folder or refuse("cannot read $path: " . lcfirst "$!");
    }
}

sub close_to_others {
    my ($path, $folder) = @_;
    chmod 0700, $folder or refuse("cannot close $path to others: " . lcfirst "$!");
}

my ($top) = @ARGV;
my $folder = open_folder($top, $top) // refuse("cannot read $top: it has gone");
check_entry($top, (stat $folder)[2, 4]);
# Whatever anybody might put into an empty folder before it is closed is seen below.
close_to_others($top, $folder) unless names_in($top, $folder);
my ($mode, $owner) = (stat $folder)[2, 4];
refuse("$top holds other things; --state takes a new folder, an empty one, or one that run.sh made")
    if names_in($top, $folder) && !lstat 'lock';
$is_open = $mode & 077;
check_entry($top, $mode, $owner);
check_folder($top, $folder);
close_to_others($top, $folder) if $is_open;
