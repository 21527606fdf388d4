import java.io.BufferedInputStream;
import java.io.BufferedOutputStream;
import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.FileReader;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.PrivateKey;
import java.security.Security;
import java.security.cert.X509Certificate;
import java.util.List;
import org.bouncycastle.asn1.ASN1Encoding;
import org.bouncycastle.asn1.ASN1UTF8String;
import org.bouncycastle.asn1.cms.Attribute;
import org.bouncycastle.asn1.pkcs.PrivateKeyInfo;
import org.bouncycastle.cert.X509CertificateHolder;
import org.bouncycastle.cert.jcajce.JcaX509CertificateConverter;
import org.bouncycastle.cms.CMSAlgorithm;
import org.bouncycastle.cms.CMSEnvelopedDataGenerator;
import org.bouncycastle.cms.CMSEnvelopedDataParser;
import org.bouncycastle.cms.CMSEnvelopedDataStreamGenerator;
import org.bouncycastle.cms.CMSProcessableByteArray;
import org.bouncycastle.cms.CMSSignedDataGenerator;
import org.bouncycastle.cms.CMSSignedDataParser;
import org.bouncycastle.cms.CMSSignedDataStreamGenerator;
import org.bouncycastle.cms.CMSTypedStream;
import org.bouncycastle.cms.RecipientInformation;
import org.bouncycastle.cms.SignerInfoGenerator;
import org.bouncycastle.cms.SignerInformation;
import org.bouncycastle.cms.jcajce.JcaSimpleSignerInfoGeneratorBuilder;
import org.bouncycastle.cms.jcajce.JcaSimpleSignerInfoVerifierBuilder;
import org.bouncycastle.cms.jcajce.JceCMSContentEncryptorBuilder;
import org.bouncycastle.cms.jcajce.JceKeyTransEnvelopedRecipient;
import org.bouncycastle.cms.jcajce.JceKeyTransRecipientInfoGenerator;
import org.bouncycastle.jce.provider.BouncyCastleProvider;
import org.bouncycastle.openssl.PEMParser;
import org.bouncycastle.openssl.jcajce.JcaPEMKeyConverter;
import org.bouncycastle.operator.OutputEncryptor;
import org.bouncycastle.operator.jcajce.JcaDigestCalculatorProviderBuilder;
import org.bouncycastle.util.Selector;
import org.bouncycastle.util.Store;

/**
 * Bouncy Castle at the command line, as a reader and a writer of streams.
 *
 * <pre>
 *   open KEY SOURCE TARGET               opens the envelope, verifies what is in it, delivers the content
 *   sign FORM KEY CERT SOURCE TARGET     signs; FORM is "definite" or "stream"
 *   seal FORM CERT SOURCE TARGET         envelopes
 * </pre>
 */
public final class StreamPeer {
  private static final int SEGMENT = 1000;

  public static void main(String[] arguments) throws Exception {
    Security.addProvider(new BouncyCastleProvider());
    switch (arguments[0]) {
      case "open" -> open(arguments[1], arguments[2], arguments[3]);
      case "sign" -> sign(arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
      case "seal" -> seal(arguments[1], arguments[2], arguments[3], arguments[4]);
      default -> throw new IllegalArgumentException(arguments[0]);
    }
  }

  // Both layers in one pass: the inner parser reads what the outer one has decrypted so far.
  private static void open(String key, String source, String target) throws Exception {
    try (InputStream input = new BufferedInputStream(new FileInputStream(source))) {
      CMSEnvelopedDataParser envelope = new CMSEnvelopedDataParser(input);
      List<RecipientInformation> recipients = List.copyOf(envelope.getRecipientInfos().getRecipients());
      System.out.println("recipients " + recipients.size());
      CMSTypedStream decrypted =
          recipients.get(0).getContentStream(new JceKeyTransEnvelopedRecipient(readKey(key)).setProvider("BC"));
      CMSSignedDataParser signed =
          new CMSSignedDataParser(
              new JcaDigestCalculatorProviderBuilder().setProvider("BC").build(),
              decrypted.getContentStream());
      try (OutputStream output = new FileOutputStream(target)) {
        signed.getSignedContent().getContentStream().transferTo(output);
      }
      verify(signed);
    }
  }

  private static void verify(CMSSignedDataParser signed) throws Exception {
    @SuppressWarnings("unchecked")
    Store<X509CertificateHolder> certificates = signed.getCertificates();
    for (SignerInformation signer : signed.getSignerInfos()) {
      @SuppressWarnings("unchecked")
      Selector<X509CertificateHolder> id = signer.getSID();
      X509CertificateHolder certificate = certificates.getMatches(id).iterator().next();
      boolean holds =
          signer.verify(new JcaSimpleSignerInfoVerifierBuilder().setProvider("BC").build(certificate));
      System.out.println((holds ? "verified " : "broken ") + certificate.getSubject());
      for (Attribute attribute : signer.getSignedAttributes().toASN1Structure().getAttributes()) {
        if (attribute.getAttributeValues()[0] instanceof ASN1UTF8String text) {
          System.out.println(attribute.getAttrType().getId() + " " + text.getString());
        }
      }
    }
  }

  private static void sign(String form, String key, String certificate, String source, String target)
      throws Exception {
    X509CertificateHolder holder = readCertificate(certificate);
    SignerInfoGenerator signer =
        new JcaSimpleSignerInfoGeneratorBuilder().build("SHA512withRSA", readKey(key), holder);
    if (form.equals("stream")) {
      CMSSignedDataStreamGenerator generator = new CMSSignedDataStreamGenerator();
      generator.setBufferSize(SEGMENT);
      generator.addSignerInfoGenerator(signer);
      generator.addCertificate(holder);
      try (OutputStream file = new BufferedOutputStream(new FileOutputStream(target));
          OutputStream message = generator.open(file, true)) {
        Files.copy(Path.of(source), message);
      }
    } else {
      CMSSignedDataGenerator generator = new CMSSignedDataGenerator();
      generator.addSignerInfoGenerator(signer);
      generator.addCertificate(holder);
      write(target, generator.generate(read(source), true).toASN1Structure().getEncoded(ASN1Encoding.DER));
    }
  }

  private static void seal(String form, String certificate, String source, String target) throws Exception {
    X509Certificate recipient = new JcaX509CertificateConverter().getCertificate(readCertificate(certificate));
    OutputEncryptor cipher = new JceCMSContentEncryptorBuilder(CMSAlgorithm.AES256_CBC).setProvider("BC").build();
    if (form.equals("stream")) {
      CMSEnvelopedDataStreamGenerator generator = new CMSEnvelopedDataStreamGenerator();
      generator.setBufferSize(SEGMENT);
      generator.addRecipientInfoGenerator(new JceKeyTransRecipientInfoGenerator(recipient));
      try (OutputStream file = new BufferedOutputStream(new FileOutputStream(target));
          OutputStream message = generator.open(file, cipher)) {
        Files.copy(Path.of(source), message);
      }
    } else {
      CMSEnvelopedDataGenerator generator = new CMSEnvelopedDataGenerator();
      generator.addRecipientInfoGenerator(new JceKeyTransRecipientInfoGenerator(recipient));
      write(target, generator.generate(read(source), cipher).toASN1Structure().getEncoded(ASN1Encoding.DER));
    }
  }

  private static CMSProcessableByteArray read(String path) throws Exception {
    return new CMSProcessableByteArray(Files.readAllBytes(Path.of(path)));
  }

  private static void write(String path, byte[] bytes) throws Exception {
    Files.write(Path.of(path), bytes);
  }

  private static PrivateKey readKey(String path) throws Exception {
    try (PEMParser parser = new PEMParser(new FileReader(path))) {
      return new JcaPEMKeyConverter().getPrivateKey((PrivateKeyInfo) parser.readObject());
    }
  }

  private static X509CertificateHolder readCertificate(String path) throws Exception {
    try (PEMParser parser = new PEMParser(new FileReader(path))) {
      return (X509CertificateHolder) parser.readObject();
    }
  }
}
