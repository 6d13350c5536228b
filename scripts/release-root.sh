# For scripts that need a root of a Debian release; sourced by them.

# sources RELEASE: the package sources of this machine, with that release in place of its own.
sources() {
  local codename
  codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' | sort -u |
    sed -n "s/^\(deb [^ ]* \)$codename\(-[^ ]*\)\{0,1\} /\1$1\2 /p"
}

# make_root RELEASE DIR PACKAGE...: a root with these packages. Nothing depends on it yet, so its data needn't be
# on disk at once.
make_root() {
  local release=$1 root=$2
  shift 2
  command -v mmdebstrap >/dev/null ||
    { apt-get -q update && apt-get -q install -y --no-install-recommends mmdebstrap; } || return
  apt-config dump | grep -E '^Acquire::(https?::|Check-|Retries|ForceIPv)' >"$root.apt.conf"
  rm -rf "$root.new"
  sources "$release" | mmdebstrap --variant=apt --keyring=/usr/share/keyrings/debian-archive-keyring.gpg \
    --aptopt="$root.apt.conf" --dpkgopt=force-unsafe-io --include="$(IFS=,; echo "$*")" \
    "$release" "$root.new" - && mv "$root.new" "$root"
}
