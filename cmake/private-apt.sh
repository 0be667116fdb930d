# private_apt ARCH FOLDER, sourced by POSIX and Bash scripts.
#
# Writes FOLDER/apt.conf, with which apt-get and apt-cache see the packages of ARCH and touch nothing outside
# FOLDER: the architectures, package lists and installed packages of this machine stay as they are. Where its
# package lists tell the address of the release's main list, only that is read: lists of updates or of other
# vendors, which may lack the architecture, then cannot fail.
# shellcheck shell=sh
private_apt() {
    mkdir -p "$2/lists/partial" "$2/archives/partial" "$2/none" || return 1
    : > "$2/status"
    cat > "$2/apt.conf" << END
APT::Architecture "$1";
#clear APT::Architectures;
APT::Architectures { "$1"; };
APT::Sandbox::User "root";
Dir::State "$2";
Dir::State::lists "$2/lists/";
Dir::State::status "$2/status";
Dir::Cache "$2";
Dir::Cache::archives "$2/archives/";
Dir::Etc::Preferences "/dev/null";
Dir::Etc::PreferencesParts "$2/none";
Acquire::Languages "none";
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
#clear DPkg::Post-Invoke;
END
    private_apt_sources > "$2/sources.list"
    [ -s "$2/sources.list" ] || return 0 # no lists here: the sources are read as they are
    printf '%s\n' "Dir::Etc::SourceList \"$2/sources.list\";" "Dir::Etc::SourceParts \"$2/none\";" >> "$2/apt.conf"
}

private_apt_sources() {
    private_apt_key=/usr/share/keyrings/debian-archive-keyring.gpg
    [ -f "$private_apt_key" ] || private_apt_key=
    apt-get indextargets --format '$(CREATED_BY) $(ORIGIN) $(RELEASE) $(COMPONENT) $(REPO_URI)' 2> /dev/null |
        awk -v c="$(. /etc/os-release && echo "${VERSION_CODENAME:-}")" \
            -v s="${private_apt_key:+[signed-by=$private_apt_key] }" \
            '$1 == "Packages" && $2 == "Debian" && $3 == c && $4 == "main" { print "deb " s $5 " " $3 " main" }' |
        sort -u
}
