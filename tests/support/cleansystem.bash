# shellcheck shell=bash
# A clean Debian in a folder, from the machine's package mirror. It is removed afterwards.

# Ends the test with a line for the summary of scripts/test.
skip()
{
    echo "SKIP   : $(basename "$0" .sh) $*"
    exit 0
}

# enter_own_namespace SCRIPT [ARGUMENT...]: restarts the script as root, with mounts and processes that
# end with it. Skips the test if this is impossible.
enter_own_namespace()
{
    local own=(unshare --mount --pid --fork --kill-child) as_root=() reason
    if [ "${TST_NAMESPACE:-}" != own ]; then
        [ "$(id -u)" -eq 0 ] || as_root=(sudo)
        command -v mmdebstrap >/dev/null || skip "needs mmdebstrap"
        reason=$("${as_root[@]}" "${own[@]}" true 2>&1) || skip "needs root and namespaces: $reason"
        exec "${as_root[@]}" env TST_NAMESPACE=own "${own[@]}" "$@"
    fi
    mount --make-rprivate /
    mount -t proc proc /proc
    unset http_proxy
}

release_of_machine()
{
    sed -n 's/^VERSION_CODENAME=//p' /etc/os-release
}

mirror_of_machine()
{
    # shellcheck disable=SC2016 # apt expands it
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' \
        "Codename: $(release_of_machine)" | sed -n 1p
}

# keep_system RELEASE KEPT: makes KEPT/RELEASE.tar, a clean system, unless the mirror has not changed
# since. Skips the test if the mirror has no such release.
keep_system()
{
    local release=$1 kept=$2/$1 mirror reason
    mirror=$(mirror_of_machine)
    [ -n "$mirror" ] || skip "knows no mirror of Debian: apt-get update may help"
    reason=$(/usr/lib/apt/apt-helper download-file "${mirror%/}/dists/$release/InRelease" \
        "$kept.InRelease.new" 2>&1) || skip "finds no $release: $(grep -m 1 '^E: ' <<<"$reason")"
    if [ -f "$kept.tar" ] && cmp -s "$kept.InRelease" "$kept.InRelease.new"; then
        rm "$kept.InRelease.new"
        return
    fi
    # It tells a shell which descriptors to use, and Debian's shell knows only those of one digit. CTest
    # and the caller's lock leave too few.
    mmdebstrap --variant=apt --skip=cleanup/apt/lists --format=tar "$release" "$kept.tar.new" \
        "$mirror" >"$kept.log" 2>&1 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&- || {
        cat "$kept.log"
        fail "mmdebstrap makes a clean $release"
    }
    mv "$kept.tar.new" "$kept.tar"
    mv "$kept.InRelease.new" "$kept.InRelease"
}

# make_clean_system RELEASE SCRATCH KEPT: unpacks the system of keep_system into SCRATCH/clean. It sees
# the machine's terminals and processes.
make_clean_system()
{
    local release=$1 clean=$2/clean kept=$3 turn
    mkdir -p "$kept" "$clean"
    exec {turn}>"$kept/turn"
    flock "$turn"
    keep_system "$release" "$kept"
    exec {turn}>&-
    tar -x --numeric-owner -C "$clean" -f "$kept/$release.tar"
    # The system is temporary, so it need not wait for the disk.
    echo force-unsafe-io >"$clean/etc/dpkg/dpkg.cfg.d/unsafe-io"
    cp /etc/resolv.conf "$clean/etc/"
    mount --bind /proc "$clean/proc"
    mount --bind /dev/pts "$clean/dev/pts" # the simulated device's wire
}

# remove_clean_system STATUS SCRATCH: removes the folder and what is mounted there, which must not
# be reached by the removal. A status other than 0 shows the folder's logs first.
remove_clean_system()
{
    local scratch=$2 log
    for log in "$scratch"/*.log; do
        [ "$1" -eq 0 ] || {
            echo "-- $log" && tail -n 40 "$log"
        }
    done
    mount | awk -v folder="$scratch/" 'index($3, folder) == 1 { print $3 }' | sort -r \
        | xargs -r -n 1 umount -l
    rm -rf --one-file-system "$scratch"
}

# keep_fetched_packages CLEAN FOLDER: what apt fetches for the clean system stays in FOLDER/fetched, for
# the next time.
keep_fetched_packages()
{
    mkdir -p "$2/fetched"
    mount --bind "$2/fetched" "$1/var/cache/apt/archives"
}

# remove_all_but FOLDER STATUS SCRATCH: as remove_clean_system, and gives FOLDER to its owner: root has
# made what belongs to the one whose folder it is.
remove_all_but()
{
    remove_clean_system "$2" "$3"
    rm -rf "$1/fetched/partial"
    chown -R --reference="$1" "$1"
}
