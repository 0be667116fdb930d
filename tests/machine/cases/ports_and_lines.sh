title="serial ports, GPIO lines and storage: the transcripts, with what they print, log and ask for"
transcripts="serial factory_lines factory_media"
. "$here/transcripts.sh"
