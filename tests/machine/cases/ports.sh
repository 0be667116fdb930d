title="serial ports and storage: the transcripts, with what they print, log and ask for"
slow="some 2 minutes"
transcripts="serial factory_media"
. "$here/transcripts.sh"
